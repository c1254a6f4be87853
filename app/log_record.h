// tesk.LogRecord: one message for the host's logger.
#pragma once

#include <tesk/tesk.h>

#include <cstdint>

namespace brimora {

// An instance of the host class tesk.LogRecord, with the fields `level` (an
// Integer: Python's numeric logging level) and `message` (a String). Calling
// the class with (level, message) makes one.
class LogRecord : public tesk::Any {
    TESK_HANDLE(LogRecord, tesk::Any)
public:
    static bool test(tesk::Any const& v) noexcept;
    // The level; 0 when the field holds no integer.
    std::int64_t level() const;
    // The message; empty when the field holds no text.
    tesk::String message() const;
};

} // namespace brimora
