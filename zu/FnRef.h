// zu::FnRef: a non-owning reference to something callable. The callable must outlive the reference.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace zu {

template <class Signature>
class FnRef;

template <class R, class... Args>
class FnRef<R(Args...)> {
 public:
  template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, FnRef> &&
                                              std::is_invocable_r_v<R, F&, Args...>>>
  FnRef(F&& f)  // NOLINT: implicit by design, like a function pointer
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(f)))),
        call_([](void* object, Args... args) -> R {
          return (*static_cast<std::remove_reference_t<F>*>(object))(std::forward<Args>(args)...);
        }) {}

  R operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }

 private:
  void* object_;
  R (*call_)(void*, Args...);
};

}  // namespace zu
