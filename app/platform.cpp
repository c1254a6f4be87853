#include "app/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

namespace brimora {
namespace {

std::string read_stream(std::istream& in) {
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

tesk::Any bytes_as_string(std::string const& bytes) {
    return tesk::String::fromRawDataUnsafe(bytes.data(), bytes.size());
}

tesk::Error unreadable(std::string const& name, int error) {
    return tesk::Error(tesk::String("Cannot read {}: {}.").arg(tesk::String(name), tesk::String(std::strerror(error))));
}

} // namespace

tesk::Any read_all_bytes(std::string const& path) {
    if (path == "-") {
        errno = 0;
        std::string bytes = read_stream(std::cin);
        // A closed or unreadable standard input is an error, not empty code.
        if (std::cin.bad() || std::ferror(stdin) != 0) return unreadable("standard input", errno != 0 ? errno : EIO);
        return bytes_as_string(bytes);
    }
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) return unreadable(path, EISDIR);
    std::ifstream file(path, std::ios::binary);
    if (!file) return unreadable(path, errno);
    std::string bytes = read_stream(file);
    if (file.bad()) return unreadable(path, errno);
    return bytes_as_string(bytes);
}

} // namespace brimora
