#include "app/log_record.h"

namespace brimora {
namespace {

const tesk::meta_field_untyped $level{"$level"};
const tesk::meta_field_untyped $message{"$message"};

// The constructor: calling the class with (level, message) fills the fields.
void initialize(tesk::Any const& self, tesk::Integer const& level, tesk::String const& message) {
    self.setFieldValue($level, level);
    self.setFieldValue($message, message);
}

void fill(tesk::class_builder_base& builder) {
    builder.module("tesk")
        .doc("A message for the host's logger: its level (Python's numeric logging level) and its text.")
        .entry(tesk::entry_tag::fields,
               {tesk::field_builder_base($level).type(tesk::Integer::getClass()).assign_doc("The level.").entry(),
                tesk::field_builder_base($message).type(tesk::String::getClass()).assign_doc("The text.").entry()})
        .method(tesk::method_builder_base(tesk::Any::$__init__)
                    .assign_func(tesk::make_closure(&initialize))
                    .signature("level, message")
                    .assign_doc("Makes a record of a level and a message.")
                    .build());
}

const tesk::class_accessor log_record_class{"LogRecord", &fill};

} // namespace

tesk::Class_Generic LogRecord::getClass() { return log_record_class(); }

bool LogRecord::test(tesk::Any const& v) noexcept {
    return v.kind() == tesk::Kind::Instance && tesk::raw_class_of(v).is_ancestor(getClass());
}

std::int64_t LogRecord::level() const {
    auto level = tesk::Integer::cast(fieldValue($level));
    return level ? level.value().value() : 0;
}

tesk::String LogRecord::message() const {
    auto message = tesk::String::cast(fieldValue($message));
    return message ? message.value() : tesk::String();
}

} // namespace brimora
