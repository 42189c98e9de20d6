#include <gtest/gtest.h>

#include "platform/Archive.h"

TEST(ArchiveTest, Placeholder) { SUCCEED(); }
