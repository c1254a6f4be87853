#include "proxies/function_signature.h"

#include "python/python_class_slot.h"
#include "python/python_name.h"
#include "from_python/attributes.h"
#include "from_python/errors.h"
#include "from_python/python_object.h"
#include "proxies/annotation_type.h"

namespace tesk::cpython {

meta_field_untyped const signature_field{"$_sign"};
meta_field_untyped const result_type_field{"$_result_type"};

namespace {

python_class_slot inspect_signature{"inspect", "signature"};
python_class_slot get_type_hints_function{"typing", "get_type_hints"};

python_name annotations_name{"__annotations__"};
python_name return_key{"return"};
python_name parameters_name{"parameters"};
python_name values_name{"values"};
python_name parameter_name{"name"};
python_name parameter_annotation{"annotation"};
python_name parameter_kind{"kind"};

// inspect.Parameter.VAR_POSITIONAL: a parameter that takes the remaining
// positional arguments (*args).
constexpr long variadic_positional_kind = 2;

// The "return" entry of an annotation dict, or null. Owned: mapping it may
// give the interpreter lock up (the first use of a typing helper imports
// it), and another thread may change a function's annotations meanwhile.
PyObjectPtr return_annotation(PyObject* annotations) {
    if (!annotations || !PyDict_Check(annotations)) return {};
    PyObjectPtr found = PyObjectPtr::borrow(PyDict_GetItemWithError(annotations, return_key.get()));
    if (!found) PyErr_Clear();
    return found;
}

Type result_type_of(PyObject* function) {
    // get_type_hints evaluates string annotations; it refuses objects that
    // are no function, class or module (a callable instance), and names it
    // cannot resolve, and then the raw annotations are read.
    if (PyObject* hints = get_type_hints_function.get()) {
        PyObjectPtr found = PyObjectPtr::steal(PyObject_CallOneArg(hints, function));
        if (!found) PyErr_Clear();
        if (PyObjectPtr annotation = return_annotation(found.get())) return host_type_for_annotation(annotation.get());
    }
    PyObjectPtr annotations = PyObjectPtr::steal(PyObject_GetAttr(function, annotations_name.get()));
    if (!annotations) PyErr_Clear();
    return host_type_for_annotation(return_annotation(annotations.get()).get());
}

// The failure of a step that needed Python: its exception, else `fallback`.
Error failure(char const* fallback) { return take_python_error(Error(String(fallback))); }

// One parameter of an inspect.Signature; false when it has no annotation
// attribute (then it is left out).
bool read_parameter(PyObject* parameter, std::vector<Parameter>& parameters, bool& variadic) {
    PyObjectPtr annotation = PyObjectPtr::steal(PyObject_GetAttr(parameter, parameter_annotation.get()));
    if (!annotation) {
        PyErr_Clear();
        return false;
    }
    String name = text_attribute(parameter, parameter_name.get()).value_or(String());
    parameters.emplace_back(name, host_type_for_annotation(annotation.get()));
    PyObjectPtr kind = PyObjectPtr::steal(PyObject_GetAttr(parameter, parameter_kind.get()));
    if (kind && PyLong_Check(kind.get()) && PyLong_AsLong(kind.get()) == variadic_positional_kind) variadic = true;
    PyErr_Clear();
    return true;
}

// The parameters of an inspect.Signature, in order. A failure to list them
// gives the Python error when there is one, else the parameters read so far.
Any read_parameters(PyObject* signature, std::vector<Parameter>& parameters, bool& variadic) {
    PyObjectPtr mapping = PyObjectPtr::steal(PyObject_GetAttr(signature, parameters_name.get()));
    if (!mapping) {
        PyErr_Clear();
        return Any();
    }
    PyObjectPtr values = PyObjectPtr::steal(PyObject_CallMethodNoArgs(mapping.get(), values_name.get()));
    PyObjectPtr iterator = values ? PyObjectPtr::steal(PyObject_GetIter(values.get())) : PyObjectPtr();
    if (!iterator) {
        if (auto error = fetch_python_error()) return error.value();
        return Any();
    }
    while (PyObjectPtr parameter = PyObjectPtr::steal(PyIter_Next(iterator.get())))
        (void)read_parameter(parameter.get(), parameters, variadic);
    PyErr_Clear(); // an iteration that ended with an exception keeps what it read
    return Any();
}

// A field of the instance when it holds a T.
template <class T> Union<T, None> cached(CPythonFunction const& function, meta_field_untyped const& field) {
    Any value = function.fieldValue(field);
    return T::test(value) ? Union<T, None>(value) : Union<T, None>();
}

Result<Signature> make_signature(CPythonFunction const& function) {
    python_object_scope scope(function);
    if (!scope) return Error(String("Unable to find the function."));
    PyObject* signatureOf = inspect_signature.get();
    if (signatureOf == nullptr) return Error(String("Unable to access 'inspect.signature' function."));
    PyObjectPtr signature = PyObjectPtr::steal(PyObject_CallOneArg(signatureOf, scope.object()));
    if (!signature) return failure("Unable to fetch signature.");
    Type resultType = function_result_type(function);
    std::vector<Parameter> parameters;
    bool variadic = false;
    if (Any listed = read_parameters(signature.get(), parameters, variadic); listed.isError()) return listed;
    return Signature(resultType, std::move(parameters), function.defaults().copyItems(), variadic);
}

} // namespace

Result<Signature> function_signature(CPythonFunction const& function) {
    if (auto kept = cached<Signature>(function, signature_field)) return kept.value();
    Result<Signature> made = make_signature(function);
    // Two threads may both make it; they make the same, and the later write wins.
    if (made.is<Signature>()) (void)function.setFieldValue(signature_field, made);
    return made;
}

Type function_result_type(CPythonFunction const& function) {
    if (auto kept = cached<Type>(function, result_type_field)) return kept.value();
    if (auto signature = cached<Signature>(function, signature_field)) return signature.value().resultType();
    Type type = Type::untyped();
    {
        python_object_scope scope(function);
        if (scope) type = result_type_of(scope.object());
        PyErr_Clear();
    }
    (void)function.setFieldValue(result_type_field, type);
    return type;
}

} // namespace tesk::cpython
