#include "app/json_value.h"

#include "app/value_text.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace brimora {
namespace {

// Builds the host values while nlohmann-json reads the text, so that numbers
// keep their written form for the plain-value rules.
class host_value_builder : public nlohmann::json_sax<nlohmann::json> {
public:
    tesk::Any result() const { return failure_.isError() ? failure_ : root_; }

    bool null() override { return add(tesk::Any()); }
    bool boolean(bool value) override { return add(tesk::Boolean(value)); }
    bool number_integer(number_integer_t value) override { return add(tesk::Integer(value)); }
    bool number_unsigned(number_unsigned_t value) override {
        return add(value <= INT64_MAX ? tesk::Integer(static_cast<std::int64_t>(value))
                                      : tesk::Integer::fromUnsigned(value));
    }
    // Floats, and integers too large for 64 bits, by their text.
    bool number_float(number_float_t, string_t const& text) override {
        tesk::Any value = parse_value(text);
        if (value.isError()) {
            failure_ = value;
            return false;
        }
        return add(value);
    }
    bool string(string_t& text) override { return add(tesk::String(text)); }
    bool binary(binary_t&) override { return false; } // JSON text has none
    bool start_object(std::size_t) override { return open(tesk::HashMap()); }
    bool key(string_t& name) override {
        keys_.back() = tesk::String(name);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(tesk::List()); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t, std::string const&, nlohmann::detail::exception const& error) override {
        // The library's message without its "[json.exception...]" tag.
        std::string what = error.what();
        if (auto tagEnd = what.find("] "); what.starts_with('[') && tagEnd != std::string::npos)
            what.erase(0, tagEnd + 2);
        failure_ = tesk::Error(tesk::String("malformed JSON: {}").arg(tesk::String(what)));
        return false;
    }

private:
    bool add(tesk::Any const& value) {
        if (open_.empty()) {
            root_ = value;
            return true;
        }
        if (auto list = tesk::List::cast(open_.back())) {
            list.value().append(value);
            return true;
        }
        (void)tesk::HashMap::unsafe(open_.back()).set(keys_.back(), value);
        return true;
    }
    bool open(tesk::Any const& container) {
        bool added = add(container);
        open_.push_back(container);
        keys_.emplace_back();
        return added;
    }
    bool close() {
        open_.pop_back();
        keys_.pop_back();
        return true;
    }

    tesk::Any root_;
    tesk::Any failure_;
    std::vector<tesk::Any> open_;   // the containers being filled, innermost last
    std::vector<tesk::String> keys_; // the pending key of each (unused for lists)
};

} // namespace

bool looks_like_json(std::string_view text) { return text.starts_with('[') || text.starts_with('{'); }

tesk::Any parse_json_value(std::string_view text) {
    host_value_builder builder;
    (void)nlohmann::json::sax_parse(text, &builder);
    return builder.result();
}

} // namespace brimora
