#include <alg_factory/hid/BaseCV.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

namespace {

using algorithm::BaseCV;

class CountingStage : public BaseCV {
 public:
  explicit CountingStage(int* destroyed) : destroyed_(destroyed) {}
  ~CountingStage() override { ++*destroyed_; }
  bool process() override { return true; }
  bool prepare() override { return false; }

 private:
  int* destroyed_;
};

TEST(BaseCV, IsAbstractAndHoldsNoData) {
  EXPECT_TRUE(std::is_abstract_v<BaseCV>);
  EXPECT_EQ(sizeof(BaseCV), sizeof(void*));
}

TEST(BaseCV, DeletingThroughTheBaseDestroysTheStage) {
  int destroyed = 0;
  std::unique_ptr<BaseCV> stage = std::make_unique<CountingStage>(&destroyed);
  EXPECT_TRUE(stage->process());
  EXPECT_FALSE(stage->prepare());
  stage.reset();
  EXPECT_EQ(destroyed, 1);
}

#if defined(__GXX_ABI_VERSION)
// The common C++ ABI stores the table offset of a virtual function in its member pointer, on some
// processors with the lowest bit set as a mark.
template <typename Function>
std::size_t tableOffset(Function function) {
  std::size_t word = 0;
  std::memcpy(&word, &function, sizeof word);
  return word & ~std::size_t{1};
}

TEST(BaseCV, SlotsAreDestructorThenProcessThenPrepare) {
  // Two destructor entries come first: the complete and the deleting one.
  EXPECT_EQ(tableOffset(&BaseCV::process), 2 * sizeof(void*));
  EXPECT_EQ(tableOffset(&BaseCV::prepare), 3 * sizeof(void*));
}
#endif

}  // namespace
