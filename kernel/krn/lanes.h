// Vectors as signed lanes of 16 or 32 bits, in the compiler's own vector types: what all widths of vectors have in common.
// The variant files add what has to be said in instructions. `Level::Vector` is the type of a whole vector.
//
// Each file has its own copy of everything: nothing here has external linkage.
#ifndef VEXAKRN_KRN_LANES_H
#define VEXAKRN_KRN_LANES_H

#include <cstdint>
#include <type_traits>

namespace vexakrn {
namespace {

template <typename Level, typename Lane>
struct Lanes : Level {
  using Vector = typename Level::Vector;
  using Element = Lane;
  static constexpr int32_t kLanes = sizeof(Vector) / sizeof(Lane);

  // No variable's address is taken: it would have to lie on the stack, aligned.
  static Vector Load(const void* from) noexcept { return *static_cast<const Anywhere*>(from); }
  static void Store(void* to, Vector a) noexcept { *static_cast<Anywhere*>(to) = a; }

  static Vector Zero() noexcept { return Vector{}; }
  static Vector Set(int32_t value) noexcept { return Whole(Signed{} + static_cast<Lane>(value)); }

  // These wrap round.
  static Vector Add(Vector a, Vector b) noexcept { return Whole(Bits(a) + Bits(b)); }
  static Vector Subtract(Vector a, Vector b) noexcept { return Whole(Bits(a) - Bits(b)); }
  static Vector Multiply(Vector a, Vector b) noexcept { return Whole(Bits(a) * Bits(b)); }
  static Vector Greater(Vector a, Vector b) noexcept { return Whole(Of(a) > Of(b)); }
  static Vector Equal(Vector a, Vector b) noexcept { return Whole(Of(a) == Of(b)); }

  template <int kBits>
  static Vector ShiftLeft(Vector a) noexcept {
    return Whole(Bits(a) << kBits);
  }
  template <int kBits>
  static Vector ShiftRight(Vector a) noexcept {  // with its sign
    return Whole(Of(a) >> kBits);
  }
  template <int kBits>
  static Vector ShiftRightLogical(Vector a) noexcept {
    return ShiftRightBy(a, kBits);
  }
  static Vector ShiftRightBy(Vector a, int32_t bits) noexcept { return Whole(Bits(a) >> bits); }

  static int32_t FirstLane(Vector a) noexcept { return Of(a)[0]; }

 private:
  typedef Vector Anywhere __attribute__((aligned(1), may_alias));
  typedef Lane Signed __attribute__((vector_size(sizeof(Vector))));
  typedef std::make_unsigned_t<Lane> Unsigned __attribute__((vector_size(sizeof(Vector))));

  static Signed Of(Vector a) noexcept { return reinterpret_cast<Signed>(a); }
  static Unsigned Bits(Vector a) noexcept { return reinterpret_cast<Unsigned>(a); }
  template <typename T>
  static Vector Whole(T a) noexcept {
    return reinterpret_cast<Vector>(a);
  }
};

}  // namespace
}  // namespace vexakrn

#endif
