// The table builder on hand-made hwloc objects: consistency checks that no topology hwloc
// loads can trip.
#include <gtest/gtest.h>

#include <vector>

#include "machine/topology/CpuTopologyTableBuilder.h"
#include "support/Failure.h"

namespace tolm {
namespace {

TEST(CpuTopologyTableBuilder, RootsFewerThanTheContainersAreAnInternalError) {
    hwloc_obj pu{};
    pu.type = HWLOC_OBJ_PU;
    hwloc_obj_t children[] = {&pu};
    hwloc_obj core{};
    core.type = HWLOC_OBJ_CORE;
    core.arity = 1;
    core.children = children;
    hwloc_obj otherCore{};
    otherCore.type = HWLOC_OBJ_CORE;
    const std::vector<HwlocObj> cores{{&core, 0}, {&otherCore, 1}};
    const std::vector<HwlocObj> pus{{&pu, 0}};

    const auto nested = CpuTopologyTableBuilder::nest({cores[0]}, {&core}, pus);
    ASSERT_EQ(nested.size(), 1u);
    EXPECT_EQ(nested[0].objs.size(), 1u);
    EXPECT_EQ(test::failureOf([&] { CpuTopologyTableBuilder::nest(cores, {&core}, pus); }),
              "Index out of range. | index < list.size()");
}

}  // namespace
}  // namespace tolm
