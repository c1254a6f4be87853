// String: immutable UTF-8 text with a cached hash.
#pragma once

#include "tesk/any.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tesk {

// Host text. Stored as UTF-8 (the form both Python and the C++ side speak),
// immutable, with its hash computed on first use and kept. Sizes and positions are
// in bytes.
class TESK_API String : public Any {
    TESK_HANDLE(String, Any)
public:
    String();                          // the empty string
    String(char const* utf8);          // NUL-terminated UTF-8
    String(std::string const& utf8);   // narrow text, taken as UTF-8
    String(std::string_view utf8);

    static bool test(Any const& v) noexcept { return v.kind() == Kind::String; }

    // Validates: every ill-formed sequence becomes U+FFFD.
    static String fromUtf8(char const* data, std::size_t size);
    static String fromUtf8(std::string_view text) { return fromUtf8(text.data(), text.size()); }
    // Takes the bytes as they are, without validation.
    static String fromRawDataUnsafe(char const* data, std::size_t size);
    static String number(std::int64_t v);

    std::string toUtf8() const { return std::string(asChars()); }
    std::string_view asChars() const noexcept;
    char const* c_str() const noexcept; // NUL-terminated
    std::size_t size() const noexcept;
    bool isEmpty() const noexcept { return size() == 0; }
    std::uint64_t hash() const noexcept;
    // Whether the bytes are well-formed UTF-8.
    bool isValidUtf8() const noexcept;

    bool startsWith(std::string_view prefix) const noexcept { return asChars().starts_with(prefix); }
    bool endsWith(std::string_view suffix) const noexcept { return asChars().ends_with(suffix); }
    bool contains(std::string_view part) const noexcept { return find(part) != npos; }
    std::size_t find(std::string_view part, std::size_t from = 0) const noexcept;
    std::size_t rfind(std::string_view part) const noexcept;
    static constexpr std::size_t npos = std::string_view::npos;

    // Pieces between separators; empty pieces are kept, so "a\n\nb" gives three.
    std::vector<String> split(std::string_view separator) const;
    std::vector<String> split(char separator) const { return split(std::string_view(&separator, 1)); }
    // The bytes [pos, pos + n), clipped to the string.
    String sliced(std::size_t pos, std::size_t n = npos) const;
    // Without leading and trailing ASCII whitespace.
    String trimmed() const;

    // Fills the "{}" places in order with the display text of each argument;
    // places without an argument stay as they are.
    template <class... Args> String arg(Args const&... args) const {
        Any const list[] = {Any(), to_any(args)...};
        return arg_list(std::span<Any const>(list + 1, sizeof...(Args)));
    }
    String arg_list(std::span<Any const> args) const;

    friend TESK_API bool operator==(String const& a, String const& b) noexcept;
    friend bool operator==(String const& a, std::string_view b) noexcept { return a.asChars() == b; }
    friend bool operator==(String const& a, char const* b) noexcept { return a.asChars() == b; }
    friend TESK_API String operator+(String const& a, String const& b);

private:
    static Any to_any(Any const& v) { return v; }
    static Any to_any(char const* v) { return String(v); }
    static Any to_any(std::string const& v) { return String(v); }
    static Any to_any(std::string_view v) { return String(v); }
    static Any to_any(std::int64_t v);
    static Any to_any(int v) { return to_any(static_cast<std::int64_t>(v)); }
};

// Hashing and equality of String keys in standard containers.
struct StringHash {
    std::size_t operator()(String const& s) const noexcept { return static_cast<std::size_t>(s.hash()); }
};

// Builds text in one pass.
class TESK_API string_builder {
public:
    string_builder& operator<<(std::string_view text) {
        buffer_.append(text);
        return *this;
    }
    string_builder& operator<<(String const& text) { return *this << text.asChars(); }
    string_builder& operator<<(char const* text) { return *this << std::string_view(text); }
    string_builder& operator<<(char c) {
        buffer_.push_back(c);
        return *this;
    }
    void reserve(std::size_t n) { buffer_.reserve(n); }
    String toString() const { return String::fromRawDataUnsafe(buffer_.data(), buffer_.size()); }
    std::string const& str() const noexcept { return buffer_; }

private:
    std::string buffer_;
};

} // namespace tesk

namespace tesk {

// Member name keys, built once from literals: "$$name" names a property,
// "$name" a field, a plain "name" a method. The key's name is the literal
// without its leading "$" characters; it converts to String wherever a member
// name is expected.
class TESK_API member_key {
public:
    explicit member_key(std::string_view literal);
    String const& name() const noexcept { return name_; }
    operator String const&() const noexcept { return name_; }

private:
    String name_;
};
class TESK_API meta_method_untyped : public member_key {
public:
    using member_key::member_key;
};
class TESK_API meta_property_untyped : public member_key {
public:
    using member_key::member_key;
};
class TESK_API meta_field_untyped : public member_key {
public:
    using member_key::member_key;
};

} // namespace tesk
