// The host module `tesk`: what the host itself offers to scripts.
#pragma once

namespace brimora {

// Defines the module `tesk` with the function get_logger() and the classes
// Logger and LogRecord. Python's logging records reach the host through them.
void define_tesk_module();

} // namespace brimora
