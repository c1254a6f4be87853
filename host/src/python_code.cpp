// PythonLanguage::toCode: host values written as Python source.
//
// The text is meant to be evaluated where the names it uses exist: dates and
// times are written with their module ("datetime.date(2024, 1, 2)"), decimals
// as "Decimal('1.10')". Code that evaluates the text runs it after
// `import datetime` and `from decimal import Decimal`.
#include "container_objects.h"

#include "tesk/language.h"

#include <cmath>

namespace tesk {

namespace internal {
namespace {

constexpr char hex_digits[] = "0123456789abcdef";

void append_hex_escape(std::string& out, unsigned char c) {
    out += "\\x";
    out += hex_digits[c >> 4];
    out += hex_digits[c & 0xF];
}

// The escapes both string and bytes literals share; false for other bytes.
bool append_common_escape(std::string& out, unsigned char c) {
    switch (c) {
    case '\\': out += "\\\\"; return true;
    case '\'': out += "\\'"; return true;
    case '\n': out += "\\n"; return true;
    case '\r': out += "\\r"; return true;
    case '\t': out += "\\t"; return true;
    default: return false;
    }
}

// '...': control characters (C0, DEL and C1) escaped as \xNN, other
// characters kept as they are. Ill-formed UTF-8 is read as U+FFFD first.
void append_string_literal(std::string& out, String const& text) {
    String valid = text.isValidUtf8() ? text : String::fromUtf8(text.asChars());
    std::string_view s = valid.asChars();
    out += '\'';
    for (std::size_t i = 0; i < s.size(); ++i) {
        auto c = static_cast<unsigned char>(s[i]);
        if (append_common_escape(out, c)) continue;
        if (c < 0x20 || c == 0x7F) {
            append_hex_escape(out, c);
        } else if (c == 0xC2 && i + 1 < s.size() && static_cast<unsigned char>(s[i + 1]) < 0xA0) {
            append_hex_escape(out, static_cast<unsigned char>(s[++i])); // U+0080..U+009F
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '\'';
}

void append_number(std::string& out, std::int64_t v) { out += std::to_string(v); }

// ", tzinfo=datetime.timezone(datetime.timedelta(seconds=N), 'name'), fold=1"
void append_time_extras(std::string& out, object_value_time const& t) {
    if (t.has_offset) {
        out += ", tzinfo=datetime.timezone(datetime.timedelta(seconds=";
        append_number(out, t.utc_offset);
        out += ')';
        if (!t.zone.isEmpty()) {
            out += ", ";
            append_string_literal(out, t.zone);
        }
        out += ')';
    }
    if (t.fold != 0) out += ", fold=1";
}

// "H, M, S[, microsecond]"
void append_clock(std::string& out, object_value_time const& t) {
    append_number(out, t.hour);
    out += ", ";
    append_number(out, t.minute);
    out += ", ";
    append_number(out, t.second);
    if (t.nanoseconds >= 1000) {
        out += ", ";
        append_number(out, t.nanoseconds / 1000);
    }
}

void append_calendar(std::string& out, object_value_date const& d) {
    append_number(out, d.year);
    out += ", ";
    append_number(out, d.month);
    out += ", ";
    append_number(out, d.day);
}

// Appends the code of `v`; on failure gives the Error and leaves `out` partial.
Any append_code(std::string& out, Any const& v);

template <class Items, class Each> Any append_all(std::string& out, Items const& items, Each each) {
    bool first = true;
    for (auto const& item : items) {
        if (!first) out += ", ";
        first = false;
        if (Any failure = each(item); failure.hasValue()) return failure;
    }
    return Any();
}

Any append_code(std::string& out, Any const& v) {
    nesting_guard guard;
    if (!guard.ok()) return Error(String("Unable to render as Python code: {}.").arg(v));
    auto each = [&out](Any const& item) { return append_code(out, item); };
    switch (v.isNone() ? Kind::None : v.kind()) {
    case Kind::None: out += "None"; return Any();
    case Kind::Undefined: out += "NotImplemented"; return Any();
    case Kind::Boolean: out += Boolean::unsafe(v).value() ? "True" : "False"; return Any();
    case Kind::Integer: append_integer(out, *static_cast<object_value_integer const*>(v.get())); return Any();
    case Kind::Float: {
        double d = Float::unsafe(v).value();
        if (std::isnan(d))
            out += "float('nan')";
        else if (std::isinf(d))
            out += d < 0 ? "float('-inf')" : "float('inf')";
        else
            append_float_repr(out, d);
        return Any();
    }
    case Kind::String: append_string_literal(out, String::unsafe(v)); return Any();
    case Kind::ByteArray: append_bytes_literal(out, bytes_of(v)->view()); return Any();
    case Kind::Decimal:
        out += "Decimal(";
        append_string_literal(out, Decimal::unsafe(v).toString());
        out += ')';
        return Any();
    case Kind::Date:
        out += "datetime.date(";
        append_calendar(out, *static_cast<object_value_date const*>(v.get()));
        out += ')';
        return Any();
    case Kind::Time: {
        auto const& t = *static_cast<object_value_time const*>(v.get());
        out += "datetime.time(";
        append_clock(out, t);
        append_time_extras(out, t);
        out += ')';
        return Any();
    }
    case Kind::DateTime: {
        auto const& dt = *static_cast<object_value_date_time const*>(v.get());
        auto const& t = *static_cast<object_value_time const*>(dt.time.get());
        out += "datetime.datetime(";
        append_calendar(out, *static_cast<object_value_date const*>(dt.date.get()));
        out += ", ";
        append_clock(out, t);
        append_time_extras(out, t);
        out += ')';
        return Any();
    }
    case Kind::List: {
        out += '[';
        Any failure = append_all(out, List::unsafe(v).copyItems(), each);
        out += ']';
        return failure;
    }
    case Kind::Tuple: {
        auto items = Tuple::unsafe(v).items();
        out += '(';
        Any failure = append_all(out, items, each);
        out += items.size() == 1 ? ",)" : ")";
        return failure;
    }
    case Kind::HashMap: {
        out += '{';
        Any failure = append_all(out, HashMap::unsafe(v).items(), [&out](auto const& entry) {
            if (Any f = append_code(out, entry.first); f.hasValue()) return f;
            out += ": ";
            return append_code(out, entry.second);
        });
        out += '}';
        return failure;
    }
    case Kind::HashSet: {
        auto items = HashSet::unsafe(v).items();
        if (items.empty()) {
            out += "set()";
            return Any();
        }
        out += '{';
        Any failure = append_all(out, items, each);
        out += '}';
        return failure;
    }
    case Kind::Computed:
    case Kind::Weak:
    case Kind::External: return append_code(out, unwrap(v));
    default: return Error(String("Unable to render as Python code: {}.").arg(v));
    }
}

} // namespace

void append_bytes_literal(std::string& out, std::string_view bytes) {
    out += "b'";
    for (char ch : bytes) {
        auto c = static_cast<unsigned char>(ch);
        if (append_common_escape(out, c)) continue;
        if (c < 0x20 || c >= 0x7F)
            append_hex_escape(out, c);
        else
            out += ch;
    }
    out += '\'';
}

} // namespace internal

Result<String> PythonLanguage::toCode(Any const& value) {
    std::string out;
    if (Any failure = internal::append_code(out, value); failure.hasValue()) return failure;
    return String::fromRawDataUnsafe(out.data(), out.size());
}

} // namespace tesk
