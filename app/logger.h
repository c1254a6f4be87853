// tesk.get_logger(): the host's logger, which writes records to standard error.
#pragma once

#include <tesk/tesk.h>

#include <cstdint>
#include <string>

namespace brimora {

// The name of a Python logging level: DEBUG, INFO, WARNING, ERROR, CRITICAL,
// or "LEVEL<n>" for any other number.
std::string level_name(std::int64_t level);

// The host class tesk.Logger.
tesk::Class_Generic logger_class();

// The one logger of the process, an instance of the host class tesk.Logger,
// whose method log(record) writes "LEVEL: message" to standard error.
tesk::Any get_logger();

} // namespace brimora
