#pragma once

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Refcounted_Auto_Ptr.h>

#include <atomic>
#include <memory>
#include <new>

namespace vexa {

/// What the handles of an ACE_Refcounted_Auto_Ptr share, counted without a lock. ACE's own guards
/// the count by the recursive mutex of the handle's type: to make one, and to lock it twice for
/// each copy of a handle, cost small messages a tenth of their time. And ACE's empty handle
/// allocates; here all of them share one rep, which nobody counts. The type of the handle stays
/// ACE's; a class chooses this by a specialisation, in the header that defines the class:
///
///   template <>
///   class ACE_Refcounted_Auto_Ptr_Rep<X, ACE_Recursive_Thread_Mutex> : public
///   vexa::Atomic_Rep_T<X>
///   {
///   public:
///     using Atomic_Rep_T::Atomic_Rep_T;
///     static ACE_Refcounted_Auto_Ptr_Rep* none() noexcept;  // the one without an object
///   };
///
/// Each thread may use handles of its own; one handle is not for several threads, as with ACE's.
template <typename X>
class Atomic_Rep_T {
public:
  typedef ACE_Refcounted_Auto_Ptr_Rep<X, ACE_Recursive_Thread_Mutex> Rep;

  Atomic_Rep_T(const Atomic_Rep_T&) = delete;
  Atomic_Rep_T& operator=(const Atomic_Rep_T&) = delete;

  X* get() const { return object_.get(); }
  long count() const { return others_.load(std::memory_order_relaxed); }

  /// Throws std::bad_alloc, as ACE's does: then `object` is still the caller's.
  static Rep* create(X* object) { return object == nullptr ? Rep::none() : new Rep(object); }
  static Rep* attach(Rep*& rep) {
    if (is_counted(rep)) rep->others_.fetch_add(1, std::memory_order_relaxed);
    return rep;
  }
  static void detach(Rep*& rep) {
    if (!is_counted(rep)) return;
    // The last handle needs no other's consent, and nobody can copy it any more.
    if (rep->others_.load(std::memory_order_acquire) == 0 ||
        rep->others_.fetch_sub(1, std::memory_order_acq_rel) == 0) {
      delete rep;
    }
  }

protected:
  explicit Atomic_Rep_T(X* object) noexcept : object_(object) {}
  ~Atomic_Rep_T() = default;

private:
  static bool is_counted(const Rep* rep) { return rep != nullptr && rep->get() != nullptr; }

  const std::unique_ptr<X> object_;
  std::atomic<long> others_{0};  // handles but one
};

}  // namespace vexa
