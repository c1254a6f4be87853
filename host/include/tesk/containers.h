// Containers (List, HashMap, HashSet, Tuple) and the collection interfaces.
//
// Each interface handle (I_Sequence_Generic, I_Map_Generic, ...) accepts any
// value whose class implements the interface. A built-in container answers
// directly; any other value (a proxy of a Python list, say) answers through its
// class's methods of the same names, so both behave alike for the caller.
#pragma once

#include "tesk/class.h"

#include <initializer_list>
#include <vector>

namespace tesk {

class I_Iterator_Generic;

// An item read for a caller that converts it at once (the Python wrappers do):
// an integer item that fits 64 signed bits is read in place, as its value,
// without taking a reference to it; any other item is a handle.
struct ItemRead {
    Any value;                // the item, unless isInteger
    std::int64_t integer = 0; // the item's value, when isInteger
    bool isInteger = false;
};

// Marker for values that never change (hashable map keys).
class TESK_API I_Immutable : public Any {
    TESK_HANDLE(I_Immutable, Any)
public:
    static bool test(Any const& v) noexcept;
};

class TESK_API I_HasName : public Any {
    TESK_HANDLE(I_HasName, Any)
public:
    static const meta_property_untyped $$name;
    static bool test(Any const& v) noexcept;
    String name() const;
};

class TESK_API I_HasDoc : public Any {
    TESK_HANDLE(I_HasDoc, Any)
public:
    static const meta_property_untyped $$doc;
    static bool test(Any const& v) noexcept;
    String doc() const;
};

class TESK_API I_HasCode : public Any {
    TESK_HANDLE(I_HasCode, Any)
public:
    static const meta_property_untyped $$code;
    static bool test(Any const& v) noexcept;
    String code() const;
};

class TESK_API I_Cloneable : public Any {
    TESK_HANDLE(I_Cloneable, Any)
public:
    static const meta_method_untyped $clone;
    static const meta_method_untyped $deepClone;
    static bool test(Any const& v) noexcept;
};

// Values that exist only while the process runs (not saved, not copied).
class TESK_API I_RuntimeOnly : public Any {
    TESK_HANDLE(I_RuntimeOnly, Any)
public:
    static bool test(Any const& v) noexcept;
};

class TESK_API I_Iterable_Generic : public Any {
    TESK_HANDLE(I_Iterable_Generic, Any)
public:
    static const meta_method_untyped $iter;
    static const meta_method_untyped $contains;
    static const meta_property_untyped $$elementsType;
    static bool test(Any const& v) noexcept;
    Result<I_Iterator_Generic> iter() const;
    Result<Boolean> contains(Any const& value) const;
    Type elementsType() const;
};

class TESK_API I_Iterator_Generic : public Any {
    TESK_HANDLE(I_Iterator_Generic, Any)
public:
    static const meta_method_untyped $next;
    static bool test(Any const& v) noexcept;
    // The next item, or a StopIteration error at the end.
    Any next() const;
    // The next item (deferred ones resolved, errors kept) into `item`; false
    // at the end, where a built-in iterator makes no StopIteration error.
    bool advance(Any& item) const;
    // The same for any value, without a copy of its handle: `item` receives
    // the next item as it is stored (deferred ones unresolved for a built-in
    // iterator). False at the end, and for a value that is no iterator.
    static bool advance(Any const& iterator, ItemRead& item);
};

class TESK_API I_Sequence_Generic : public I_Iterable_Generic {
    TESK_HANDLE(I_Sequence_Generic, I_Iterable_Generic)
public:
    static const meta_property_untyped $$__len__;
    static const meta_method_untyped $at;
    static const meta_method_untyped $atOr;
    static const meta_method_untyped $indexOf;
    static const meta_method_untyped $sliced;
    static bool test(Any const& v) noexcept;
    Result<Integer> length() const;
    Any at(std::int64_t index) const; // item or Error
    Any atOr(std::int64_t index, Any const& fallback) const;
    Result<Integer> indexOf(Any const& value, std::int64_t from = 0) const; // -1 when absent
    Any sliced(std::int64_t start, std::int64_t stop) const; // a new sequence or Error
    // For a built-in List or Tuple and an index inside it, the item (as
    // stored) into `item`, read under one lock; false for any other value or
    // index, which at() answers.
    static bool readBuiltin(Any const& sequence, std::int64_t index, ItemRead& item);
};

class TESK_API I_MutableSequence_Generic : public I_Sequence_Generic {
    TESK_HANDLE(I_MutableSequence_Generic, I_Sequence_Generic)
public:
    static const meta_method_untyped $set;
    static const meta_method_untyped $removeAt;
    static const meta_method_untyped $removeOne;
    static const meta_method_untyped $pop;
    static const meta_method_untyped $extend;
    static const meta_method_untyped $clear;
    static const meta_method_untyped $appendAt;
    static const meta_method_untyped $append;
    static bool test(Any const& v) noexcept;
    Result<None> set(std::int64_t index, Any const& value) const;
    Result<None> removeAt(std::int64_t index, std::int64_t count = 1) const;
    Result<None> append(Any const& value) const;
    Result<None> appendAt(std::int64_t index, Any const& value) const;
    Result<None> extend(Any const& iterable) const;
    Result<None> clear() const;
};

class TESK_API I_Map_Generic : public I_Iterable_Generic {
    TESK_HANDLE(I_Map_Generic, I_Iterable_Generic)
public:
    static const meta_method_untyped $get;
    static const meta_property_untyped $$keys;
    static const meta_property_untyped $$values;
    static const meta_property_untyped $$keysType;
    static const meta_property_untyped $$valuesType;
    static const meta_property_untyped $$__len__;
    static bool test(Any const& v) noexcept;
    // The value, or an Error ("Key not found: {}.") when the key is absent.
    Any get(Any const& key) const;
    Any getOr(Any const& key, Any const& fallback) const;
    Result<Boolean> contains(Any const& key) const;
    Any keys() const;   // a List or Error
    Any values() const; // a List or Error
    Result<Integer> length() const;
    Type keysType() const;
    Type valuesType() const;
};

class TESK_API I_MutableMap_Generic : public I_Map_Generic {
    TESK_HANDLE(I_MutableMap_Generic, I_Map_Generic)
public:
    static const meta_method_untyped $set;
    static const meta_method_untyped $remove;
    static const meta_method_untyped $clear;
    static bool test(Any const& v) noexcept;
    Result<None> set(Any const& key, Any const& value) const;
    // Like set, but refuses a key or value that does not conform to the map's types.
    Result<None> setChecked(Any const& key, Any const& value) const;
    Any remove(Any const& key) const; // the removed value or Error
    Result<None> clear() const;
};

class TESK_API I_Set_Generic : public I_Iterable_Generic {
    TESK_HANDLE(I_Set_Generic, I_Iterable_Generic)
public:
    static const meta_property_untyped $$__len__;
    static bool test(Any const& v) noexcept;
    Result<Integer> length() const;
};

class TESK_API I_MutableSet_Generic : public I_Set_Generic {
    TESK_HANDLE(I_MutableSet_Generic, I_Set_Generic)
public:
    static const meta_method_untyped $insert;
    static const meta_method_untyped $remove;
    static const meta_method_untyped $extend;
    static const meta_method_untyped $clear;
    static bool test(Any const& v) noexcept;
    Result<Boolean> insert(Any const& value) const;
    Result<Boolean> remove(Any const& value) const;
};

// Element-typed spellings; the element type is checked at run time, not here.
template <class T> class I_Iterable : public I_Iterable_Generic {
    TESK_HANDLE(I_Iterable, I_Iterable_Generic)
public:
    static bool test(Any const& v) noexcept { return I_Iterable_Generic::test(v); }
};
template <class T> class I_Iterator : public I_Iterator_Generic {
    TESK_HANDLE(I_Iterator, I_Iterator_Generic)
public:
    static bool test(Any const& v) noexcept { return I_Iterator_Generic::test(v); }
};
template <class T> class I_Sequence : public I_Sequence_Generic {
    TESK_HANDLE(I_Sequence, I_Sequence_Generic)
public:
    static bool test(Any const& v) noexcept { return I_Sequence_Generic::test(v); }
};
template <class T> class I_MutableSequence : public I_MutableSequence_Generic {
    TESK_HANDLE(I_MutableSequence, I_MutableSequence_Generic)
public:
    static bool test(Any const& v) noexcept { return I_MutableSequence_Generic::test(v); }
};
template <class K, class V> class I_Map : public I_Map_Generic {
    TESK_HANDLE(I_Map, I_Map_Generic)
public:
    static bool test(Any const& v) noexcept { return I_Map_Generic::test(v); }
};
template <class K, class V> class I_MutableMap : public I_MutableMap_Generic {
    TESK_HANDLE(I_MutableMap, I_MutableMap_Generic)
public:
    static bool test(Any const& v) noexcept { return I_MutableMap_Generic::test(v); }
};
template <class T> class I_Set : public I_Set_Generic {
    TESK_HANDLE(I_Set, I_Set_Generic)
public:
    static bool test(Any const& v) noexcept { return I_Set_Generic::test(v); }
};
template <class T> class I_MutableSet : public I_MutableSet_Generic {
    TESK_HANDLE(I_MutableSet, I_MutableSet_Generic)
public:
    static bool test(Any const& v) noexcept { return I_MutableSet_Generic::test(v); }
};

template <class T> Class_Generic I_Iterable<T>::getClass() { return I_Iterable_Generic::getClass(); }
template <class T> Class_Generic I_Iterator<T>::getClass() { return I_Iterator_Generic::getClass(); }
template <class T> Class_Generic I_Sequence<T>::getClass() { return I_Sequence_Generic::getClass(); }
template <class T> Class_Generic I_MutableSequence<T>::getClass() { return I_MutableSequence_Generic::getClass(); }
template <class K, class V> Class_Generic I_Map<K, V>::getClass() { return I_Map_Generic::getClass(); }
template <class K, class V> Class_Generic I_MutableMap<K, V>::getClass() { return I_MutableMap_Generic::getClass(); }
template <class T> Class_Generic I_Set<T>::getClass() { return I_Set_Generic::getClass(); }
template <class T> Class_Generic I_MutableSet<T>::getClass() { return I_MutableSet_Generic::getClass(); }

// A growable list. Thread-safe: each operation holds the list's lock.
class TESK_API List : public I_MutableSequence_Generic {
    TESK_HANDLE(List, I_MutableSequence_Generic)
public:
    List();                                   // untyped elements
    explicit List(Type const& elementType);
    List(std::initializer_list<Any> items);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::List; }

    void append(Any const& value) const;
    std::size_t size() const;
    Any at(std::int64_t index) const; // item, or Error when out of range (no negative indexing)
    void set(std::size_t index, Any const& value) const; // index < size()
    std::vector<Any> copyItems() const;
    Type elementType() const;
};
using List_Generic = List;

// A hash map that keeps insertion order. Keys must be immutable values.
class TESK_API HashMap : public I_MutableMap_Generic {
    TESK_HANDLE(HashMap, I_MutableMap_Generic)
public:
    HashMap();                                      // untyped keys and values
    HashMap(Type const& keysType, Type const& valuesType);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::HashMap; }

    Result<None> set(Any const& key, Any const& value) const; // Error for a mutable key
    Union<Any, None> find(Any const& key) const;              // none when absent
    bool contains(Any const& key) const;
    bool remove(Any const& key) const;
    std::size_t size() const;
    std::vector<std::pair<Any, Any>> items() const; // insertion order
};

class TESK_API HashSet : public I_MutableSet_Generic {
    TESK_HANDLE(HashSet, I_MutableSet_Generic)
public:
    HashSet();
    explicit HashSet(Type const& elementType);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::HashSet; }

    Result<Boolean> insert(Any const& value) const; // whether the set grew; Error for a mutable value
    bool contains(Any const& value) const;
    bool remove(Any const& value) const;
    std::size_t size() const;
    std::vector<Any> items() const; // insertion order
};

// An immutable fixed-size sequence.
class TESK_API Tuple : public I_Sequence_Generic {
    TESK_HANDLE(Tuple, I_Sequence_Generic)
public:
    Tuple(std::vector<Any> items);
    Tuple(std::initializer_list<Any> items) : Tuple(std::vector<Any>(items)) {}
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Tuple; }
    std::size_t size() const noexcept;
    Any const& operator[](std::size_t index) const noexcept; // index < size()
    std::span<Any const> items() const noexcept;
};

} // namespace tesk
