#include "from_python/numbers.h"

#include "from_python/errors.h"
#include "from_python/text.h"
#include "python/python_integers.h"

#include <cmath>

namespace tesk::cpython {

Any decimal_from_python(PyObject* decimal) {
    PyObjectPtr text = PyObjectPtr::steal(PyObject_Str(decimal));
    if (!text) return take_python_error(Error(String("Unable to convert Python decimal to string.")));
    Any converted = string_from_python(text.get());
    if (!String::test(converted)) return converted;
    return Decimal::fromString(String::unsafe(converted));
}

Any float_from_python(PyObject* number) {
    double d = PyFloat_AsDouble(number);
    if (std::isnan(d)) return Float(d);
    double integral = 0.0;
    if (std::modf(d, &integral) != 0.0) return Float(d);
    // Whole values become integers (2.0 → 2, -0.0 → 0), but only those that
    // fit: narrowing a double outside the int64 range is undefined, and
    // clamping would invent a different number. So 1e300, 2**63 as a float
    // and the infinities stay Float.
    constexpr double int64_low = -9223372036854775808.0; // -2**63, exact
    constexpr double int64_high = 9223372036854775808.0; // 2**63, exact, excluded
    if (integral >= int64_low && integral < int64_high) return Integer(static_cast<std::int64_t>(integral));
    return Float(d);
}

Any integer_from_python(PyObject* integer) {
    if (std::int64_t v; python_integer_value(integer, v)) return Integer(v);
    // Out of the int64 range: the host gets the OverflowError Python raised.
    return take_python_error(Error(String("Unable to convert Python integer to int64.")));
}

Any number_from_python(PyObject* number) {
    // Truncates every number that is neither a float nor a decimal:
    // Fraction(1, 2) gives 0; a complex number gives Python's TypeError.
    PyObjectPtr integer = PyObjectPtr::steal(PyNumber_Long(number));
    if (!integer) return take_python_error(Error(String("Unable to convert Python number to integer.")));
    return integer_from_python(integer.get());
}

} // namespace tesk::cpython
