// Python code using host objects through their wrappers, against the same
// code using a pybind11-bound C++ object and a plain Python object, in the
// same run. Each benchmark iteration runs a Python loop of `loop_count`
// operations; the `per_op` counter is the time of one operation.
#include "python/python_ref.h"
#include "to_python/to_python.h"

#include <benchmark/benchmark.h>
#include <pybind11/pybind11.h>
#include <tesk/tesk.h>

namespace {

using namespace tesk;
using namespace tesk::cpython;
namespace py = pybind11;

constexpr int loop_count = 100;

// The Python side: one loop per operation, and the plain Python object.
constexpr char const* python_code = R"(
def call(o, n):
    for _ in range(n): o.add(1, 2)
def read(o, n):
    for _ in range(n): o.x
def iterate(xs, n):
    for _ in range(n):
        for v in xs: pass
def count(n):
    for _ in range(n):
        for v in range(1000): pass
def index(xs, n):
    for _ in range(n):
        for i in range(1000): xs[i]
def plus(a, b, n):
    for _ in range(n): a + b
class Plain:
    def __init__(self): self.x = 1
    def add(self, a, b): return a + b
    def __add__(self, other): return 3
)";

// ---- the host object -----------------------------------------------------------

std::int64_t host_add(Any const&, std::int64_t a, std::int64_t b) { return a + b; }
std::int64_t host_x(Any const&) { return 1; }
std::int64_t host_plus(Any const&, Any const&) { return 3; }

I_Callable_Generic host_method(char const* name, I_Callable_Generic f, char const* parameters) {
    return method_builder_base(String(name)).assign_func(f).signature(String(parameters)).build();
}

void fill_point(class_builder_base& b) {
    b.module(String("bench"));
    b.method(host_method("add", make_closure(host_add), "a, b"));
    b.method(host_method("__add__", make_closure(host_plus), "other"));
    b.property(property_builder_base(String("x")).getter(make_closure(host_x)));
}
class_accessor point_class{"Point", fill_point};

// ---- the pybind11 object -------------------------------------------------------

struct Point {
    std::int64_t x = 1;
    std::int64_t add(std::int64_t a, std::int64_t b) const { return a + b; }
};

// The bound class; pybind11 registers a C++ type once per process.
py::object pybind_point_class() {
    static py::module_::module_def definition;
    py::module_ m = py::module_::create_extension_module("bench_pybind", nullptr, &definition);
    py::class_<Point>(m, "Point")
        .def(py::init<>())
        .def("add", &Point::add)
        .def_readonly("x", &Point::x)
        .def("__add__", [](Point const&, Point const&) { return 3; });
    return m.attr("Point");
}

// ---- the objects the loops run on, made once -----------------------------------

struct bench_objects {
    PyObjectPtr globals;
    PyObjectPtr host, host_other, pybind, pybind_other, plain, plain_other, host_list, python_list;

    PyObject* function(char const* name) const { return PyDict_GetItemString(globals.get(), name); }
};

bench_objects const& objects() {
    static bench_objects const* made = [] {
        gil_guard gil;
        auto* o = new bench_objects();
        o->globals = PyObjectPtr::steal(PyDict_New());
        PyDict_SetItemString(o->globals.get(), "__builtins__", PyEval_GetBuiltins());
        PyObjectPtr ran = PyObjectPtr::steal(PyRun_String(python_code, Py_file_input, o->globals.get(), o->globals.get()));
        o->host = to_python_ref(point_class().allocateInstance());
        o->host_other = to_python_ref(point_class().allocateInstance());
        py::object pointClass = pybind_point_class();
        o->pybind = PyObjectPtr::steal(pointClass().release().ptr());
        o->pybind_other = PyObjectPtr::steal(pointClass().release().ptr());
        PyObject* plain = o->function("Plain");
        o->plain = PyObjectPtr::steal(PyObject_CallNoArgs(plain));
        o->plain_other = PyObjectPtr::steal(PyObject_CallNoArgs(plain));
        List list;
        o->python_list = PyObjectPtr::steal(PyList_New(1000));
        for (int i = 0; i < 1000; ++i) {
            list.append(Integer(i));
            PyList_SET_ITEM(o->python_list.get(), i, PyLong_FromLong(i));
        }
        o->host_list = to_python_ref(list);
        if (PyErr_Occurred()) PyErr_Print();
        return o;
    }();
    return *made;
}

// Runs the loop `function(args..., loop_count)` per iteration.
template <class... Objects> void run_loop(benchmark::State& state, char const* function, Objects... operands) {
    gil_guard gil;
    PyObject* f = objects().function(function);
    PyObjectPtr count = PyObjectPtr::steal(PyLong_FromLong(loop_count));
    PyObjectPtr args = PyObjectPtr::steal(PyTuple_Pack(sizeof...(operands) + 1, operands..., count.get()));
    for (auto _ : state) {
        PyObject* result = PyObject_Call(f, args.get(), nullptr);
        if (!result) {
            PyErr_Print();
            state.SkipWithError("the Python loop raised");
            break;
        }
        Py_DECREF(result);
    }
    state.counters["per_op"] =
        benchmark::Counter(loop_count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void method_call_ours(benchmark::State& s) { run_loop(s, "call", objects().host.get()); }
void method_call_pybind11(benchmark::State& s) { run_loop(s, "call", objects().pybind.get()); }
void method_call_python(benchmark::State& s) { run_loop(s, "call", objects().plain.get()); }
void property_read_ours(benchmark::State& s) { run_loop(s, "read", objects().host.get()); }
void property_read_pybind11(benchmark::State& s) { run_loop(s, "read", objects().pybind.get()); }
void property_read_python(benchmark::State& s) { run_loop(s, "read", objects().plain.get()); }
void iterate_1000_ours(benchmark::State& s) { run_loop(s, "iterate", objects().host_list.get()); }
void iterate_1000_python_list(benchmark::State& s) { run_loop(s, "iterate", objects().python_list.get()); }
// The floor of any loop that makes its integers: `range` hands out a new int
// above 256 for every item, as converting a host integer does.
void iterate_1000_python_range(benchmark::State& s) { run_loop(s, "count"); }
void index_1000_ours(benchmark::State& s) { run_loop(s, "index", objects().host_list.get()); }
void index_1000_python_list(benchmark::State& s) { run_loop(s, "index", objects().python_list.get()); }
void add_operator_ours(benchmark::State& s) { run_loop(s, "plus", objects().host.get(), objects().host_other.get()); }
void add_operator_pybind11(benchmark::State& s) {
    run_loop(s, "plus", objects().pybind.get(), objects().pybind_other.get());
}
void add_operator_python(benchmark::State& s) { run_loop(s, "plus", objects().plain.get(), objects().plain_other.get()); }

BENCHMARK(method_call_ours);
BENCHMARK(method_call_pybind11);
BENCHMARK(method_call_python);
BENCHMARK(property_read_ours);
BENCHMARK(property_read_pybind11);
BENCHMARK(property_read_python);
BENCHMARK(iterate_1000_ours);
BENCHMARK(iterate_1000_python_list);
BENCHMARK(iterate_1000_python_range);
BENCHMARK(index_1000_ours);
BENCHMARK(index_1000_python_list);
BENCHMARK(add_operator_ours);
BENCHMARK(add_operator_pybind11);
BENCHMARK(add_operator_python);

} // namespace
