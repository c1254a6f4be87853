// The heap base of every host value, the value kinds and the spinlock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#if defined(_WIN32)
#define TESK_API __declspec(dllexport)
#else
#define TESK_API __attribute__((visibility("default")))
#endif

namespace tesk {

namespace internal {
// Checked builds (debug and sanitizer builds define TESK_LOCK_CHECKS) count
// the spinlocks each thread holds, so that code about to wait for another
// lock (the Python interpreter lock) can assert that it holds none.
TESK_API void spinlock_acquired() noexcept;
TESK_API void spinlock_released() noexcept;
// The number of spinlocks this thread holds; always 0 in unchecked builds.
TESK_API int spinlock_depth() noexcept;
// Reports a broken lock rule and aborts.
[[noreturn]] TESK_API void lock_check_failed(char const* what, char const* file, int line) noexcept;
} // namespace internal

// Asserts a lock rule in checked builds (independent of NDEBUG, so that
// optimised sanitizer builds check too); compiles to nothing otherwise.
#if defined(TESK_LOCK_CHECKS)
#define TESK_LOCK_ASSERT(condition, what) \
    ((condition) ? void(0) : ::tesk::internal::lock_check_failed(what, __FILE__, __LINE__))
#else
#define TESK_LOCK_ASSERT(condition, what) void(0)
#endif

// A lock for short critical sections. Always taken after the Python
// interpreter lock, never held while waiting for it, and never held while a
// value is released (a finaliser may need the interpreter lock).
class spinlock {
public:
    void lock() noexcept {
        while (flag_.test_and_set(std::memory_order_acquire)) {
            while (flag_.test(std::memory_order_relaxed)) {
            }
        }
        count_acquired();
    }
    bool try_lock() noexcept {
        if (flag_.test_and_set(std::memory_order_acquire)) return false;
        count_acquired();
        return true;
    }
    void unlock() noexcept {
#if defined(TESK_LOCK_CHECKS)
        internal::spinlock_released();
#endif
        flag_.clear(std::memory_order_release);
    }

private:
    static void count_acquired() noexcept {
#if defined(TESK_LOCK_CHECKS)
        internal::spinlock_acquired();
#endif
    }
    std::atomic_flag flag_;
};

// Kind codes. 3, 7, 16 and 17 are fixed by the hosts that load extensions;
// the others are ours.
enum class Kind : std::uint8_t {
    Class = 3,
    Instance = 7,
    None = 16,
    Undefined = 17,
    Boolean = 20,
    Integer,
    Float,
    String,
    ByteArray,
    Decimal,
    Date,
    Time,
    DateTime,
    List,
    HashMap,
    HashSet,
    Tuple,
    Callable,
    Property,
    Signature,
    Parameter,
    Computed,
    Weak,
    External,
};

// Class trait bits.
namespace traits {
inline constexpr std::uint64_t interface = 0x1;        // the class is an interface
inline constexpr std::uint64_t immutable = 0x2;        // instances never change (hashable)
inline constexpr std::uint64_t error = 0x4;            // Error or a class derived from it
inline constexpr std::uint64_t dynamic_members = 0x80; // members come from lookup hooks
inline constexpr std::uint64_t callable = 0x100;       // instances are callable
inline constexpr std::uint64_t map = 0x20000;          // instances are maps
inline constexpr std::uint64_t sequence = 0x1000000;   // instances are sequences
inline constexpr std::uint64_t map_like = 0x2000000;   // instances behave like maps
} // namespace traits

namespace internal {

class object_value_class;
struct own_members;

// Every host value lives in one of these. The count starts at 1: the creator
// hands that reference to an Any with Any::adopt.
class TESK_API object_value {
public:
    // Out of line: it counts the object for live_object_count().
    object_value(Kind kind, object_value_class const* cls) noexcept;
    object_value(object_value const&) = delete;
    object_value& operator=(object_value const&) = delete;
    virtual ~object_value();

    Kind kind() const noexcept { return kind_; }
    // The class record; built-in value classes and instance classes outlive their values.
    object_value_class const* class_value() const noexcept { return class_; }

    // An immortal value's count is never written, so that copies of a value
    // shared by every thread (a cached small integer, a boolean, an interned
    // name) touch no shared cache line.
    void retain() const noexcept {
        if (is_immortal()) return;
        refcount_.fetch_add(1, std::memory_order_relaxed);
    }
    // Drops one reference; destroys the object (after its class finaliser) at zero.
    void release() const noexcept {
        if (is_immortal()) return;
        if (refcount_.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
    }
    std::uint32_t use_count() const noexcept { return refcount_.load(std::memory_order_relaxed); }

    // Makes the value live for the process: its count saturates, as CPython's
    // immortal objects. Safe while other threads copy the value: the count is
    // set far inside the immortal range, so that a retain or release that
    // read the count before the change stays inside it.
    void make_immortal() const noexcept { refcount_.store(immortal_count, std::memory_order_relaxed); }
    bool is_immortal() const noexcept {
        return (refcount_.load(std::memory_order_relaxed) & immortal_bit) != 0;
    }

    // Guards the object's mutable state (own members, fields, container items).
    spinlock& lock() const noexcept { return lock_; }

    // The object's own properties and methods; created on first insertion.
    own_members* own() const noexcept { return own_.load(std::memory_order_acquire); }
    own_members& own_or_create() const;

protected:
    void set_class(object_value_class const* cls) noexcept { class_ = cls; }

private:
    static constexpr std::uint32_t immortal_bit = 0x80000000u;
    static constexpr std::uint32_t immortal_count = 0xC0000000u;

    void destroy() const noexcept;

    mutable std::atomic<std::uint32_t> refcount_{1};
    Kind kind_;
    mutable bool finalized_ = false;
    mutable spinlock lock_;
    object_value_class const* class_;
    mutable std::atomic<own_members*> own_{nullptr};

    friend class object_value_class;
};

// The number of host objects alive in the process (for leak checks).
TESK_API std::int64_t live_object_count() noexcept;

} // namespace internal
} // namespace tesk
