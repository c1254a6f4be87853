#include "app/logger.h"

#include "app/log_record.h"

#include <iostream>

namespace brimora {
namespace {

void log(tesk::Any const&, LogRecord const& record) {
    std::cerr << level_name(record.level()) << ": " << record.message().asChars() << '\n';
}

void fill(tesk::class_builder_base& builder) {
    builder.module("tesk")
        .doc("The host's logger: writes each record to standard error.")
        .method(tesk::method_builder_base("log")
                    .assign_func(tesk::make_closure(&log))
                    .signature("record")
                    .assign_doc("Writes a LogRecord as 'LEVEL: message'.")
                    .build());
}

const tesk::class_accessor logger_accessor{"Logger", &fill};

} // namespace

std::string level_name(std::int64_t level) {
    switch (level) {
    case 10: return "DEBUG";
    case 20: return "INFO";
    case 30: return "WARNING";
    case 40: return "ERROR";
    case 50: return "CRITICAL";
    default: return "LEVEL" + std::to_string(level);
    }
}

tesk::Class_Generic logger_class() { return logger_accessor(); }

tesk::Any get_logger() {
    static const tesk::Any logger = logger_class().allocateInstance();
    return logger;
}

} // namespace brimora
