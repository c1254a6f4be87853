// Dropping deeply nested containers takes no stack in proportion to the depth.
#include <gtest/gtest.h>
#include <tesk/tesk.h>

namespace {

using namespace tesk;

TEST(DeepRelease, NestedTuplesListsAndMapsAreReleasedWithoutRecursion) {
    constexpr int depth = 1000000;
    Any nested = Integer(1);
    for (int i = 0; i < depth; ++i) {
        switch (i % 3) {
        case 0: nested = Tuple({nested}); break;
        case 1: nested = List({nested}); break;
        default: {
            HashMap map;
            (void)map.set(String("inner"), nested);
            nested = map;
        }
        }
    }
    nested = Any(); // the whole chain goes here
    // The thread's release machinery is back to normal afterwards.
    List list({Tuple({Integer(2)})});
    EXPECT_EQ(list.size(), 1u);
}

} // namespace
