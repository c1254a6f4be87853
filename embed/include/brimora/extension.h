// Loading the Python extension library (libbrimora_python.so) into a host.
#pragma once

#include "brimora/export.h"

#include <tesk/tesk.h>

#include <string>

namespace brimora {

// The file name of the extension library.
inline constexpr char extension_file_name[] = "libbrimora_python.so";

// The extension beside libbrimora_embed.so itself: in a build tree both are
// in bin/, in an installed prefix both are in lib/.
BRIMORA_EMBED_API std::string default_extension_path();

// Loads the extension at `path` and calls its entry points, which register
// its init handlers (the module tesk.cpython and the language are defined
// when the host runs them: tesk::run_init_handlers()). None, or an Error
// with the loader's own reason (a missing file, a library that is no
// Brimora extension). The library stays mapped until the process ends, even
// when loaded twice: the classes, modules and callables that it registers
// with the host point into its code.
BRIMORA_EMBED_API tesk::Union<tesk::None, tesk::Error> load_extension(std::string const& path);

} // namespace brimora
