// String: UTF-8 text in one allocation, with its hash computed on first use.
#include "value_objects.h"

#include <charconv>
#include <cstring>
#include <mutex>
#include <unordered_set>

namespace tesk {

namespace internal {

object_value_bytes* object_value_bytes::allocate(Kind kind, std::size_t size) {
    auto cls = builtin_class(kind == Kind::String ? builtin::string : builtin::byte_array);
    void* memory = ::operator new(sizeof(object_value_bytes) + size + 1);
    auto* record = new (memory) object_value_bytes(kind, cls, size);
    record->data()[size] = '\0';
    return record;
}

object_value_bytes* object_value_bytes::make(Kind kind, char const* data, std::size_t size) {
    auto* record = allocate(kind, size);
    if (size != 0) std::memcpy(record->data(), data, size);
    return record;
}

int utf8_sequence(unsigned char const* p, std::size_t available) noexcept {
    unsigned char lead = p[0];
    if (lead < 0x80) return 1;
    // The accepted range of the second byte depends on the lead byte; it
    // rules out overlong forms, surrogates and values above U+10FFFF.
    int length;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return -1;
    }
    for (int i = 1; i < length; ++i) {
        if (static_cast<std::size_t>(i) >= available) return -i;
        unsigned char c = p[i];
        if (c < low || c > high) return -i;
        low = 0x80;
        high = 0xBF;
    }
    return length;
}

namespace {

// The empty string, shared by every String() and every empty result.
std::atomic<object_value const*> g_empty_string{nullptr};

object_value_bytes const* empty_string_record() {
    return static_cast<object_value_bytes const*>(
        shared_value(g_empty_string, [] { return object_value_bytes::make(Kind::String, "", 0); }));
}

Any make_string(char const* data, std::size_t size) {
    if (size == 0) return Any::borrow(empty_string_record());
    return Any::adopt(object_value_bytes::make(Kind::String, data, size));
}

// The length of the well-formed prefix; ASCII runs go eight bytes at a time.
std::size_t valid_utf8_prefix(char const* data, std::size_t size) noexcept {
    auto p = reinterpret_cast<unsigned char const*>(data);
    std::size_t i = 0;
    while (i < size) {
        if (size - i >= 8) {
            std::uint64_t word;
            std::memcpy(&word, p + i, 8);
            if ((word & 0x8080808080808080ull) == 0) {
                i += 8;
                continue;
            }
        }
        int n = utf8_sequence(p + i, size - i);
        if (n < 0) return i;
        i += static_cast<std::size_t>(n);
    }
    return size;
}

Any make_valid_string(char const* data, std::size_t size) {
    std::size_t valid = valid_utf8_prefix(data, size);
    if (valid == size) return make_string(data, size);
    static constexpr char replacement[] = "\xEF\xBF\xBD";
    std::string fixed(data, valid);
    auto p = reinterpret_cast<unsigned char const*>(data);
    for (std::size_t i = valid; i < size;) {
        int n = utf8_sequence(p + i, size - i);
        if (n > 0) {
            fixed.append(data + i, static_cast<std::size_t>(n));
            i += static_cast<std::size_t>(n);
        } else {
            fixed.append(replacement, 3);
            i += static_cast<std::size_t>(-n);
        }
    }
    return make_string(fixed.data(), fixed.size());
}

bool is_ascii_space(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

} // namespace
} // namespace internal

using internal::bytes_of;

String::String() : Any(Any::borrow(internal::empty_string_record())) {}
String::String(char const* utf8) : String(std::string_view(utf8 ? utf8 : "")) {}
String::String(std::string const& utf8) : String(std::string_view(utf8)) {}
String::String(std::string_view utf8) : Any(internal::make_valid_string(utf8.data(), utf8.size())) {}

String String::fromUtf8(char const* data, std::size_t size) {
    return unsafe(internal::make_valid_string(data, size));
}

String String::fromRawDataUnsafe(char const* data, std::size_t size) {
    return unsafe(internal::make_string(data, size));
}

String String::number(std::int64_t v) {
    char buffer[24];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, v).ptr;
    return fromRawDataUnsafe(buffer, static_cast<std::size_t>(end - buffer));
}

// A String handle that holds nothing reads as the empty string.
std::string_view String::asChars() const noexcept { return get() ? bytes_of(*this)->view() : std::string_view(); }
char const* String::c_str() const noexcept { return get() ? bytes_of(*this)->data() : ""; }
std::size_t String::size() const noexcept { return get() ? bytes_of(*this)->size : 0; }
std::uint64_t String::hash() const noexcept {
    return get() ? bytes_of(*this)->hash() : internal::empty_string_record()->hash();
}

bool String::isValidUtf8() const noexcept {
    auto text = asChars();
    return internal::valid_utf8_prefix(text.data(), text.size()) == text.size();
}

std::size_t String::find(std::string_view part, std::size_t from) const noexcept { return asChars().find(part, from); }
std::size_t String::rfind(std::string_view part) const noexcept { return asChars().rfind(part); }

std::vector<String> String::split(std::string_view separator) const {
    std::vector<String> pieces;
    if (separator.empty()) {
        pieces.push_back(*this);
        return pieces;
    }
    auto text = asChars();
    std::size_t start = 0;
    for (;;) {
        std::size_t at = text.find(separator, start);
        if (at == npos) break;
        pieces.push_back(sliced(start, at - start));
        start = at + separator.size();
    }
    pieces.push_back(sliced(start));
    return pieces;
}

String String::sliced(std::size_t pos, std::size_t n) const {
    auto text = asChars();
    if (pos >= text.size()) return String();
    n = std::min(n, text.size() - pos);
    if (n == text.size() && get() != nullptr) return *this;
    return fromRawDataUnsafe(text.data() + pos, n);
}

String String::trimmed() const {
    auto text = asChars();
    std::size_t begin = 0, end = text.size();
    while (begin < end && internal::is_ascii_space(text[begin])) ++begin;
    while (end > begin && internal::is_ascii_space(text[end - 1])) --end;
    return sliced(begin, end - begin);
}

String String::arg_list(std::span<Any const> args) const {
    auto text = asChars();
    string_builder out;
    out.reserve(text.size() + 16 * args.size());
    std::size_t start = 0;
    for (Any const& arg : args) {
        std::size_t at = text.find("{}", start);
        if (at == npos) break;
        out << text.substr(start, at - start) << display(arg);
        start = at + 2;
    }
    if (start == 0) return *this;
    out << text.substr(start);
    return out.toString();
}

bool operator==(String const& a, String const& b) noexcept {
    if (a.get() == b.get()) return true;
    return a.asChars() == b.asChars();
}

String operator+(String const& a, String const& b) {
    if (a.isEmpty()) return b.get() ? b : String();
    if (b.isEmpty()) return a;
    auto* record = internal::object_value_bytes::allocate(Kind::String, a.size() + b.size());
    std::memcpy(record->data(), a.asChars().data(), a.size());
    std::memcpy(record->data() + a.size(), b.asChars().data(), b.size());
    return String::unsafe(Any::adopt(record));
}

Any String::to_any(std::int64_t v) { return Integer(v); }

// ---------------------------------------------------------------------------
// Member keys. Their names are interned: every key of one name holds the same
// String object, so member tables mostly compare keys by pointer.
namespace {

struct interned_names {
    // Guarded by `lock`; the Strings live for the process.
    spinlock lock;
    std::unordered_set<String, StringHash> names;
};

String intern(std::string_view name) {
    static interned_names* const table = new interned_names(); // never destroyed: keys outlive statics
    String candidate(name);
    std::lock_guard guard(table->lock);
    auto [position, inserted] = table->names.insert(std::move(candidate));
    if (inserted) position->get()->make_immortal();
    return *position;
}

} // namespace

member_key::member_key(std::string_view literal) {
    std::size_t skip = literal.find_first_not_of('$');
    name_ = intern(skip == std::string_view::npos ? std::string_view() : literal.substr(skip));
}

} // namespace tesk
