#include <gtest/gtest.h>

#include "infra/object_frame.h"

namespace gw {
namespace {

TEST(ObjectFrame, FramesAndFindsPiecesInAnyOrder) {
  EXPECT_EQ(FrameObjectText("TSK", "<Task/>"), "[!TSK!]<Task/>[iTSKi]");
  const std::string text =
      FrameObjectText("FIL", "saver") + FrameObjectText("TSK", "task") + FrameObjectText("CRL", "");
  EXPECT_EQ(UnframeObjectText(text, "TSK"), "task");
  EXPECT_EQ(UnframeObjectText(text, "FIL"), "saver");
  EXPECT_EQ(UnframeObjectText(text, "CRL"), "");
  // A missing piece, a missing closing marker, and markers in another case are not found.
  EXPECT_EQ(UnframeObjectText(text, "HTP"), "");
  EXPECT_EQ(UnframeObjectText("[!TSK!]open", "TSK"), "");
  EXPECT_EQ(UnframeObjectText("[!tsk!]x[itski]", "TSK"), "");
  // Codes that share letters do not mix: "CR" is not "CRL".
  EXPECT_EQ(UnframeObjectText("[!CRL!]a[iCRLi][!CR!]b[iCRi]", "CR"), "b");
}

}  // namespace
}  // namespace gw
