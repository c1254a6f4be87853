// The member name keys of the public handles.
//
// These are namespace-scope statics, constructed in no fixed order with the
// other statics of the library. Making one makes a String, which needs only
// function-local statics (and the built-in classes, which build themselves on
// first request), so they may be made first, last or in between.
#include "tesk/builder.h"
#include "tesk/language.h"

namespace tesk {

const meta_method_untyped Any::$__init__("__init__");
const meta_method_untyped Any::$__isSame__("__isSame__");
const meta_method_untyped Any::$__add__("__add__");
const meta_method_untyped Any::$__mul__("__mul__");
const meta_method_untyped Any::$__imul__("__imul__");
const meta_method_untyped Any::$__iadd__("__iadd__");
const meta_method_untyped Any::$__sub__("__sub__");
const meta_method_untyped Any::$__isub__("__isub__");
const meta_method_untyped Any::$__div__("__div__");
const meta_method_untyped Any::$__idiv__("__idiv__");
const meta_method_untyped Any::$__and__("__and__");
const meta_method_untyped Any::$__or__("__or__");
const meta_method_untyped Any::$__xor__("__xor__");
const meta_method_untyped Any::$__not__("__not__");
const meta_method_untyped Any::$__hash__("__hash__");
const meta_method_untyped Any::$__property__("__property__");
const meta_method_untyped Any::$__propertyValue__("__propertyValue__");
const meta_method_untyped Any::$__setPropertyValue__("__setPropertyValue__");
const meta_method_untyped Any::$__removeProperty__("__removeProperty__");
const meta_method_untyped Any::$__removeMethod__("__removeMethod__");
const meta_method_untyped Any::$__ownProperty__("__ownProperty__");
const meta_method_untyped Any::$__ownProperties__("__ownProperties__");
const meta_method_untyped Any::$__ownMethods__("__ownMethods__");
const meta_method_untyped Any::$__ownMethod__("__ownMethod__");
const meta_method_untyped Any::$__method__("__method__");
const meta_method_untyped Any::$__insertProperty__("__insertProperty__");
const meta_method_untyped Any::$__insertMethod__("__insertMethod__");
const meta_method_untyped Any::$__display__("__display__");
const meta_method_untyped Any::$__compare__("__compare__");

const meta_property_untyped Error::$$message("$$message");

const meta_property_untyped I_HasName::$$name("$$name");
const meta_property_untyped I_HasDoc::$$doc("$$doc");
const meta_property_untyped I_HasCode::$$code("$$code");
const meta_method_untyped I_Cloneable::$clone("clone");
const meta_method_untyped I_Cloneable::$deepClone("deepClone");

const meta_method_untyped I_Iterable_Generic::$iter("iter");
const meta_method_untyped I_Iterable_Generic::$contains("contains");
const meta_property_untyped I_Iterable_Generic::$$elementsType("$$elementsType");
const meta_method_untyped I_Iterator_Generic::$next("next");

const meta_property_untyped I_Sequence_Generic::$$__len__("$$__len__");
const meta_method_untyped I_Sequence_Generic::$at("at");
const meta_method_untyped I_Sequence_Generic::$atOr("atOr");
const meta_method_untyped I_Sequence_Generic::$indexOf("indexOf");
const meta_method_untyped I_Sequence_Generic::$sliced("sliced");

const meta_method_untyped I_MutableSequence_Generic::$set("set");
const meta_method_untyped I_MutableSequence_Generic::$removeAt("removeAt");
const meta_method_untyped I_MutableSequence_Generic::$removeOne("removeOne");
const meta_method_untyped I_MutableSequence_Generic::$pop("pop");
const meta_method_untyped I_MutableSequence_Generic::$extend("extend");
const meta_method_untyped I_MutableSequence_Generic::$clear("clear");
const meta_method_untyped I_MutableSequence_Generic::$appendAt("appendAt");
const meta_method_untyped I_MutableSequence_Generic::$append("append");

const meta_method_untyped I_Map_Generic::$get("get");
const meta_property_untyped I_Map_Generic::$$keys("$$keys");
const meta_property_untyped I_Map_Generic::$$values("$$values");
const meta_property_untyped I_Map_Generic::$$keysType("$$keysType");
const meta_property_untyped I_Map_Generic::$$valuesType("$$valuesType");
const meta_property_untyped I_Map_Generic::$$__len__("$$__len__");

const meta_method_untyped I_MutableMap_Generic::$set("set");
const meta_method_untyped I_MutableMap_Generic::$remove("remove");
const meta_method_untyped I_MutableMap_Generic::$clear("clear");

const meta_property_untyped I_Set_Generic::$$__len__("$$__len__");
const meta_method_untyped I_MutableSet_Generic::$insert("insert");
const meta_method_untyped I_MutableSet_Generic::$remove("remove");
const meta_method_untyped I_MutableSet_Generic::$extend("extend");
const meta_method_untyped I_MutableSet_Generic::$clear("clear");

const meta_method_untyped I_Language::$evaluate("evaluate");
const meta_method_untyped I_Language::$evaluateExpression("evaluateExpression");
const meta_method_untyped I_Language::$resolve("resolve");
const meta_method_untyped I_Language::$toCode("toCode");
const meta_property_untyped I_Language::$$canEvaluate("$$canEvaluate");
const meta_property_untyped I_Language::$$instance("$$instance");
const meta_method_untyped PythonLanguage::$evaluateInSandbox("evaluateInSandbox");
const meta_method_untyped PythonLanguage::$evaluateExpressionInSandbox("evaluateExpressionInSandbox");

} // namespace tesk
