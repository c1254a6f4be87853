// display: the host's text for any value.
#include "class_internal.h"
#include "container_objects.h"

#include <charconv>

namespace tesk {

namespace internal {
namespace {

void append_padded(std::string& out, std::int64_t v, int width) {
    if (v < 0) {
        out += '-';
        v = -v;
    }
    char buffer[24];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, v).ptr;
    for (auto n = end - buffer; n < width; ++n) out += '0';
    out.append(buffer, end);
}

// ISO 8601: 2024-01-02, 13:45:30.000001+02:00.
void append_date(std::string& out, object_value_date const& d) {
    append_padded(out, d.year, 4);
    out += '-';
    append_padded(out, d.month, 2);
    out += '-';
    append_padded(out, d.day, 2);
}

void append_time(std::string& out, object_value_time const& t) {
    append_padded(out, t.hour, 2);
    out += ':';
    append_padded(out, t.minute, 2);
    out += ':';
    append_padded(out, t.second, 2);
    if (t.nanoseconds != 0) {
        out += '.';
        if (t.nanoseconds % 1000 == 0)
            append_padded(out, t.nanoseconds / 1000, 6);
        else
            append_padded(out, t.nanoseconds, 9);
    }
    if (t.has_offset) {
        out += '+';
        append_padded(out, t.utc_offset / 3600, 2);
        out += ':';
        append_padded(out, t.utc_offset / 60 % 60, 2);
        if (t.utc_offset % 60 != 0) {
            out += ':';
            append_padded(out, t.utc_offset % 60, 2);
        }
    }
}

void append_display(std::string& out, Any const& v);

template <class Items, class Each>
void append_items(std::string& out, char open, Items const& items, char close, Each each) {
    out += open;
    bool first = true;
    for (auto const& item : items) {
        if (!first) out += ", ";
        first = false;
        each(item);
    }
    out += close;
}

// Objects that are not built-in values: a "__display__" override, else the
// message of an error, the name of a class, or "<ClassName>".
void append_object(std::string& out, Any const& v) {
    if (Any method = class_override(v, Any::$__display__); method.hasValue()) {
        Any text = call_member(method, v, {});
        if (String::test(text)) {
            out += String::unsafe(text).asChars();
            return;
        }
    }
    if (v.isError()) {
        out += Error::unsafe(v).message().asChars();
    } else if (v.kind() == Kind::Class) {
        out += static_cast<object_value_class const*>(v.get())->name().asChars();
    } else {
        out += '<';
        if (auto const* cls = v.get()->class_value()) out += cls->name().asChars();
        out += '>';
    }
}

void append_display(std::string& out, Any const& v) {
    if (v.get() == nullptr) {
        out += "None";
        return;
    }
    nesting_guard guard;
    if (!guard.ok()) {
        out += "...";
        return;
    }
    auto each = [&out](Any const& item) { append_display(out, item); };
    switch (v.kind()) {
    case Kind::None: out += "None"; break;
    case Kind::Undefined: out += "Undefined"; break;
    case Kind::Boolean: out += Boolean::unsafe(v).value() ? "true" : "false"; break;
    case Kind::Integer: append_integer(out, *static_cast<object_value_integer const*>(v.get())); break;
    case Kind::Float: append_float_repr(out, static_cast<object_value_float const*>(v.get())->value); break;
    case Kind::String: out += bytes_of(v)->view(); break;
    case Kind::ByteArray: append_bytes_literal(out, bytes_of(v)->view()); break;
    case Kind::Decimal: out += static_cast<object_value_decimal const*>(v.get())->text.asChars(); break;
    case Kind::Date: append_date(out, *static_cast<object_value_date const*>(v.get())); break;
    case Kind::Time: append_time(out, *static_cast<object_value_time const*>(v.get())); break;
    case Kind::DateTime: {
        auto const& dt = *static_cast<object_value_date_time const*>(v.get());
        append_date(out, *static_cast<object_value_date const*>(dt.date.get()));
        out += 'T';
        append_time(out, *static_cast<object_value_time const*>(dt.time.get()));
        break;
    }
    case Kind::List: append_items(out, '[', List::unsafe(v).copyItems(), ']', each); break;
    case Kind::Tuple: {
        auto items = Tuple::unsafe(v).items();
        append_items(out, '(', items, ')', each);
        if (items.size() == 1) out.insert(out.size() - 1, ",");
        break;
    }
    case Kind::HashMap:
        append_items(out, '{', HashMap::unsafe(v).items(), '}', [&out](auto const& entry) {
            append_display(out, entry.first);
            out += ": ";
            append_display(out, entry.second);
        });
        break;
    case Kind::HashSet: append_items(out, '{', HashSet::unsafe(v).items(), '}', each); break;
    case Kind::Computed:
    case Kind::Weak:
    case Kind::External: append_display(out, unwrap(v)); break;
    default: append_object(out, v); break;
    }
}

} // namespace
} // namespace internal

String display(Any const& v) {
    if (String::test(v)) return String::unsafe(v);
    std::string out;
    internal::append_display(out, v);
    return String::fromRawDataUnsafe(out.data(), out.size());
}

} // namespace tesk
