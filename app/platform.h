// What the host program needs from the operating system.
#pragma once

#include <tesk/tesk.h>

#include <string>

namespace brimora {

// Every byte of a file, or of standard input for "-", as a String taken
// without validation (the text is checked by whoever reads it). An Error names
// the file and the reason when it cannot be read.
tesk::Any read_all_bytes(std::string const& path);

} // namespace brimora
