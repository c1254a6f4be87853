// The sequence, mapping and number tables of the wrapper types. Each is made
// once per process and never freed: the types keep pointers to them.
#include "to_python/wrapper_protocol_slots.h"
#include "to_python/wrapper_type_block.h"

namespace tesk::cpython {

namespace {

// +, += (every wrapper type has them).
PySequenceMethods make_concat_table() {
    PySequenceMethods t{};
    t.sq_concat = tesk_sequence_concat;
    t.sq_inplace_concat = tesk_sequence_extend;
    return t;
}

} // namespace

PySequenceMethods* sequence_methods_concat() noexcept {
    static PySequenceMethods table = make_concat_table();
    return &table;
}

PySequenceMethods* sequence_methods_contains() noexcept {
    static PySequenceMethods table = [] {
        PySequenceMethods t = make_concat_table();
        t.sq_contains = tesk_contains; // x in w
        return t;
    }();
    return &table;
}

PySequenceMethods* sequence_methods_sized() noexcept {
    static PySequenceMethods table = [] {
        PySequenceMethods t = make_concat_table();
        t.sq_length = tesk_length;    // len(w), truth
        t.sq_contains = tesk_contains; // x in w
        return t;
    }();
    return &table;
}

PySequenceMethods* sequence_methods_full() noexcept {
    static PySequenceMethods table = [] {
        PySequenceMethods t = make_concat_table();
        t.sq_length = tesk_length;                          // len(w), truth
        t.sq_repeat = tesk_sequence_repeat;                 // w * n, n * w
        t.sq_item = tesk_sequence_item;                     // w[i] from C code
        t.sq_ass_item = tesk_sequence_assign_item;          // w[i] = v, del w[i] from C code
        t.sq_contains = tesk_contains;                      // x in w
        t.sq_inplace_repeat = tesk_sequence_inplace_repeat; // w *= n
        return t;
    }();
    return &table;
}

PyMappingMethods* mapping_methods() noexcept {
    static PyMappingMethods table = [] {
        PyMappingMethods t{};
        t.mp_length = tesk_length;                  // len(w), truth
        t.mp_subscript = tesk_subscript;            // w[k], w[a:b:c]
        t.mp_ass_subscript = tesk_assign_subscript; // w[k] = v, del w[k]
        return t;
    }();
    return &table;
}

// No + or *: Python reaches those through the sequence table. No truth slot:
// a wrapper with a length is true when it is not empty, any other is true.
PyNumberMethods* number_methods() noexcept {
    static PyNumberMethods table = [] {
        PyNumberMethods t{};
        t.nb_subtract = tesk_number_subtract;                   // w - x
        t.nb_and = tesk_number_and;                             // w & x
        t.nb_xor = tesk_number_xor;                             // w ^ x
        t.nb_or = tesk_number_or;                               // w | x
        t.nb_invert = tesk_number_not;                          // ~w
        t.nb_inplace_subtract = tesk_number_inplace_subtract;   // w -= x
        t.nb_true_divide = tesk_number_divide;                  // w / x
        t.nb_inplace_true_divide = tesk_number_inplace_divide;  // w /= x
        return t;
    }();
    return &table;
}

} // namespace tesk::cpython
