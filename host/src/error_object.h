// Internal: the record of an error value.
#pragma once

#include "tesk/error.h"
#include "tesk/class.h"

namespace tesk::internal {

// Instances of Error and of every class derived from it. The error's parts
// are kept natively (not as fields), so that making an error costs one
// allocation; they are guarded by the object's lock.
class object_value_error : public object_value_instance {
public:
    using object_value_instance::object_value_instance;
    String message;
    String stack;
    Any value;
    Any cause;
    // The position of an EvaluationError (Integers or none).
    Any code, line, column, length;
};

// The error record of an error value (nullptr when it holds none).
inline object_value_error const* error_record(Any const& v) noexcept {
    return Error::test(v) ? static_cast<object_value_error const*>(v.get()) : nullptr;
}

} // namespace tesk::internal
