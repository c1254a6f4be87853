// Internal: the pieces of the built-in class build that live beside the
// concepts they belong to (error objects, modules, container methods).
#pragma once

#include "tesk/class.h"

namespace tesk::internal {

// Instance factories of the built-in classes.
object_value* make_plain_instance(object_value_class const* cls);
object_value* make_error_instance(object_value_class const* cls); // error.cpp
object_value* make_module_instance(object_value_class const* cls); // module.cpp

// Runs once, inside the built-in class build, after every record exists: adds
// the methods and properties of the built-in classes (builtin_members.cpp).
void install_builtin_members();

} // namespace tesk::internal
