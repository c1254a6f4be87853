#include "from_python/builtin_type_classes.h"

#include "python/python_classes.h"
#include "python/python_once.h"

#include <unordered_map>
#include <utility>

namespace tesk::cpython {

namespace {

using type_table = std::unordered_map<PyObject*, Class_Generic>;

// Built once, never changed: read without a lock afterwards. A class whose
// module did not import contributes no row.
type_table const& builtin_types() {
    static python_once once;
    static type_table* table = nullptr;
    once.run([] {
        auto* built = new type_table;
        auto add = [built](PyObject* type, Class_Generic const& cls) {
            if (type) built->emplace(type, cls);
        };
        add(reinterpret_cast<PyObject*>(&PyByteArray_Type), ByteArray::getClass());
        add(reinterpret_cast<PyObject*>(&PyBytes_Type), ByteArray::getClass());
        add(reinterpret_cast<PyObject*>(&PyMemoryView_Type), ByteArray::getClass());
        add(reinterpret_cast<PyObject*>(&PyLong_Type), Integer::getClass());
        add(reinterpret_cast<PyObject*>(&PyUnicode_Type), String::getClass());
        add(reinterpret_cast<PyObject*>(&PyFloat_Type), Float::getClass());
        add(reinterpret_cast<PyObject*>(&PyBool_Type), Boolean::getClass());
        add(reinterpret_cast<PyObject*>(&PyType_Type), Class_Generic::getClass());
        add(date_class(), Date::getClass());
        add(datetime_class(), DateTime::getClass());
        add(time_class(), Time::getClass());
        add(decimal_class(), Decimal::getClass());
        table = built;
    });
    return *table;
}

} // namespace

Union<Class_Generic, None> builtin_type_class(PyObject* type) {
    type_table const& table = builtin_types();
    if (auto found = table.find(type); found != table.end()) return found->second;
    return {};
}

} // namespace tesk::cpython
