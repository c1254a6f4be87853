// Loading the Python extension library and calling its entry points.
#pragma once

#include <tesk/tesk.h>

#include <memory>
#include <string>
#include <variant>

namespace brimora {

// The file name of the extension library.
inline constexpr char extension_file_name[] = "libbrimora_python.so";

// The default extension: the library beside the running program.
std::string default_extension_path();

// A loaded extension. The library stays mapped until the process ends, even
// after the handle is closed: the classes, modules and callables that it
// registered with the host keep pointing into its code.
class LoadedExtension {
public:
    // Loads the library and calls brimora_extension_init and
    // brimora_extension_bind_api. An Error carries the loader's own reason.
    static std::variant<LoadedExtension, tesk::Error> load(std::string const& path);

private:
    struct Closer {
        void operator()(void* handle) const noexcept;
    };
    explicit LoadedExtension(void* handle) : handle_(handle) {}

    std::unique_ptr<void, Closer> handle_;
};

} // namespace brimora
