#include <gtest/gtest.h>

#include <string>

#include "montage/MontageText.h"

using montage_detail::HasNameToken;
using montage_detail::RenameNameToken;

TEST(MontageText, RenamesWholeNamesOnly) {
    std::string f = "FP1-fp10+(fp1*2)/Fp1_x";
    EXPECT_TRUE(RenameNameToken(f, "Fp1", "O1"));
    EXPECT_EQ(f, "O1-fp10+(O1*2)/Fp1_x");
    // Exponents of constants are not names; a name after a constant is.
    std::string g = "1E3*E3+2.5e3-E3";
    EXPECT_TRUE(RenameNameToken(g, "E3", "X"));
    EXPECT_EQ(g, "1E3*X+2.5e3-X");
    std::string h = "$A~1+A";
    EXPECT_TRUE(RenameNameToken(h, "$a~1", "B"));
    EXPECT_EQ(h, "B+A");
    std::string unchanged = "FIR(C3,1,3,0,40)";
    EXPECT_FALSE(RenameNameToken(unchanged, "FIR3", "X"));
    EXPECT_FALSE(RenameNameToken(unchanged, "", "X"));
    EXPECT_TRUE(HasNameToken(unchanged, "c3"));
    EXPECT_FALSE(HasNameToken(unchanged, "3"));
}
