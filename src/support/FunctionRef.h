#pragma once

// A borrowed callable: two words, no allocation. For callbacks that are called before the function
// they are passed to returns; it must not be kept.

#include <memory>
#include <type_traits>
#include <utility>

namespace tessivane {

template <typename Signature>
class FunctionRef;

template <typename Result, typename... Arguments>
class FunctionRef<Result(Arguments...)> final {
 public:
  template <typename Callable>
  requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionRef> &&
           std::is_invocable_r_v<Result, Callable&, Arguments...>)
      // A lambda is meant to convert at the call.
      // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload)
      FunctionRef(Callable&& callable)
      : callable_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        invoke_([](void* target, Arguments... arguments) -> Result {
          return (*static_cast<std::remove_reference_t<Callable>*>(target))(
              std::forward<Arguments>(arguments)...);
        }) {}

  Result operator()(Arguments... arguments) const {
    return invoke_(callable_, std::forward<Arguments>(arguments)...);
  }

 private:
  void* callable_;
  Result (*invoke_)(void*, Arguments...);
};

}  // namespace tessivane
