// For tests of what the vector library compiles for several instruction sets.
#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

namespace fixtures {

/// Runs `test` with each instruction set that this processor has.
template <class Test>
void onEveryTarget(Test test) {
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        SCOPED_TRACE(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
        test();
    }
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

} // namespace fixtures
