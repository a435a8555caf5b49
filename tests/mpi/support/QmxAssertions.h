// GoogleTest assertions on wrapper return codes that print the code's class and text.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpitest {

std::string qmxErrorText(int code);
int qmxErrorClass(int code);

testing::AssertionResult qmxSucceeded(const char* expression, int code);

}  // namespace tolm::mpitest

#define ASSERT_QMX_OK(call) ASSERT_PRED_FORMAT1(::tolm::mpitest::qmxSucceeded, call)
#define EXPECT_QMX_OK(call) EXPECT_PRED_FORMAT1(::tolm::mpitest::qmxSucceeded, call)
