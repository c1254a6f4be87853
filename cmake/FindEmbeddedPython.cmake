# Finds CPython 3.13 with its shared library and headers, for embedding.
#
# Looked for, in order: Python3_ROOT_DIR (a Python prefix), pyenv's 3.13
# (`pyenv prefix 3.13.0`, then any 3.13.x), python3.13-config on the PATH.
# Defines the imported target EmbeddedPython::Python.

find_package(Threads REQUIRED)

set(_python_prefixes "")
if(DEFINED Python3_ROOT_DIR)
  list(APPEND _python_prefixes "${Python3_ROOT_DIR}")
elseif(DEFINED ENV{Python3_ROOT_DIR})
  list(APPEND _python_prefixes "$ENV{Python3_ROOT_DIR}")
endif()

find_program(_pyenv pyenv HINTS "$ENV{HOME}/.pyenv/bin" "$ENV{PYENV_ROOT}/bin")
if(_pyenv)
  foreach(_version 3.13.0 3.13)
    execute_process(COMMAND ${_pyenv} prefix ${_version}
      OUTPUT_VARIABLE _prefix OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE _rc)
    if(_rc EQUAL 0 AND _prefix)
      list(APPEND _python_prefixes "${_prefix}")
    endif()
  endforeach()
endif()
file(GLOB _pyenv_versions "$ENV{HOME}/.pyenv/versions/3.13*")
list(APPEND _python_prefixes ${_pyenv_versions})

find_program(_python_config python3.13-config)
if(_python_config)
  execute_process(COMMAND ${_python_config} --prefix
    OUTPUT_VARIABLE _prefix OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(_prefix)
    list(APPEND _python_prefixes "${_prefix}")
  endif()
endif()
list(APPEND _python_prefixes /usr /usr/local)

set(EMBEDDED_PYTHON_PREFIX "")
foreach(_prefix IN LISTS _python_prefixes)
  if(EXISTS "${_prefix}/include/python3.13/Python.h")
    find_library(_libpython NAMES python3.13 PATHS "${_prefix}/lib" "${_prefix}/lib/x86_64-linux-gnu"
      NO_DEFAULT_PATH NO_CACHE)
    if(_libpython)
      set(EMBEDDED_PYTHON_PREFIX "${_prefix}")
      set(EMBEDDED_PYTHON_LIBRARY "${_libpython}")
      break()
    endif()
  endif()
endforeach()

if(NOT EMBEDDED_PYTHON_PREFIX)
  message(FATAL_ERROR
    "CPython 3.13 with its shared library (libpython3.13.so) and headers (Python.h) was not found.\n"
    "Looked in: ${_python_prefixes}\n"
    "Install it with pyenv (PYTHON_CONFIGURE_OPTS=--enable-shared pyenv install 3.13.0), "
    "or pass -DPython3_ROOT_DIR=<prefix> pointing at a Python 3.13 built with --enable-shared.")
endif()

message(STATUS "Embedding CPython 3.13 from ${EMBEDDED_PYTHON_PREFIX}")
add_library(EmbeddedPython::Python SHARED IMPORTED)
set_target_properties(EmbeddedPython::Python PROPERTIES
  IMPORTED_LOCATION "${EMBEDDED_PYTHON_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${EMBEDDED_PYTHON_PREFIX}/include/python3.13")
# The interpreter finds its standard library relative to its own prefix.
set(EMBEDDED_PYTHON_HOME "${EMBEDDED_PYTHON_PREFIX}" CACHE INTERNAL "")
