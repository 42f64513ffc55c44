#include <gtest/gtest.h>
#include "String.h"
TEST(Smoke, Builds) { EXPECT_EQ(String("a").length(), 1u); }
