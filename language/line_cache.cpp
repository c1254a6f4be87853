// Entries are made as linecache makes them for code that has no file: a
// (size, mtime None, lines, name) tuple, which `linecache.checkcache` leaves
// alone because of the missing modification time.
#include "language/line_cache.h"

#include "python/python_name.h"
#include "python/python_text.h"

#include <string>

namespace tesk::cpython {
namespace {

// linecache's dictionary, importing the module on first use; null (with no
// exception pending) when it cannot be had.
python_name line_cache_module{"linecache"};
python_name cache_attribute{"cache"};

PyObjectPtr line_cache_dict() {
    PyObjectPtr module = loaded_module(line_cache_module);
    PyObject* attribute = module ? cache_attribute.get() : nullptr;
    PyObjectPtr cache = attribute ? PyObjectPtr::steal(PyObject_GetAttr(module.get(), attribute)) : PyObjectPtr();
    if (!cache || !PyDict_Check(cache.get())) {
        PyErr_Clear();
        return {};
    }
    return cache;
}

PyObjectPtr lines_list(std::string_view text) {
    std::vector<std::string_view> const lines = source_lines(text);
    PyObjectPtr list = PyObjectPtr::steal(PyList_New(static_cast<Py_ssize_t>(lines.size())));
    if (!list) return {};
    std::string line;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        line.assign(lines[i]).push_back('\n');
        PyObjectPtr item = python_text(line);
        if (!item) return {};
        PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), item.release());
    }
    return list;
}

} // namespace

std::vector<std::string_view> source_lines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n' && text[i] != '\r') continue;
        lines.push_back(text.substr(start, i - start));
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
        start = i + 1;
    }
    lines.push_back(text.substr(start));
    return lines;
}

void register_source(std::string_view text, PyObject* file) {
    PyObjectPtr cache = line_cache_dict();
    if (!cache) return;
    PyObjectPtr lines = lines_list(text);
    PyObjectPtr size = PyObjectPtr::steal(PyLong_FromSize_t(text.size()));
    PyObjectPtr entry = lines && size ? PyObjectPtr::steal(PyTuple_Pack(4, size.get(), Py_None, lines.get(), file))
                                      : PyObjectPtr();
    if (!entry || PyDict_SetItem(cache.get(), file, entry.get()) < 0) PyErr_Clear();
}

void forget_source(PyObject* file) {
    PyObjectPtr cache = line_cache_dict();
    if (!cache) return;
    PyObject* removed = nullptr;
    if (PyDict_Pop(cache.get(), file, &removed) < 0) PyErr_Clear();
    PyObjectPtr const released = PyObjectPtr::steal(removed);
}

} // namespace tesk::cpython
