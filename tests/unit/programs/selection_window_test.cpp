#include "selection_window.h"

#include <gtest/gtest.h>

namespace viewer {
namespace {

TEST(SelectionWindow, BeginsInTheMiddleOfThePicture) {
  const SelectionWindow window;
  EXPECT_EQ(window.position(), (Position{480, 270}));
  EXPECT_EQ(window.size(), (Size{960, 540}));
  EXPECT_EQ(window.move_range(), (MoveRange{{0, 0}, {960, 540}}));
}

class EveryLevel : public ::testing::TestWithParam<int> {};

TEST_P(EveryLevel, TheFrameReachesEveryEdgeAndNoFarther) {
  SelectionWindow window;
  ASSERT_TRUE(window.ChangeZoomLevel(GetParam()));
  const Position greatest = window.move_range().greatest;
  EXPECT_EQ(greatest.left + window.size().width, kPicture.width);
  EXPECT_EQ(greatest.top + window.size().height, kPicture.height);
  EXPECT_TRUE(window.MoveTo({0, 0}));
  EXPECT_TRUE(window.MoveTo(greatest));
  EXPECT_FALSE(window.MoveTo({greatest.left + 1, 0}));
  EXPECT_FALSE(window.MoveTo({0, greatest.top + 1}));
  EXPECT_FALSE(window.MoveTo({-1, 0}));
  EXPECT_FALSE(window.MoveTo({0, -1}));
  EXPECT_EQ(window.position(), greatest);
}

TEST_P(EveryLevel, ZoomingKeepsTheMiddle) {
  SelectionWindow window;
  ASSERT_TRUE(window.ChangeZoomLevel(GetParam()));
  EXPECT_EQ(window.position().left + window.size().width / 2, kPicture.width / 2);
  EXPECT_EQ(window.position().top + window.size().height / 2, kPicture.height / 2);
}

INSTANTIATE_TEST_SUITE_P(SelectionWindow, EveryLevel,
                         ::testing::Range(0, SelectionWindow::kGreatestZoomLevel + 1));

TEST(SelectionWindow, MagnifyingMoreMakesItSmaller) {
  SelectionWindow window;
  for (int level = 1; level <= SelectionWindow::kGreatestZoomLevel; ++level) {
    const Size before = window.size();
    ASSERT_TRUE(window.ChangeZoomLevel(level));
    EXPECT_LT(window.size().width, before.width);
  }
}

TEST(SelectionWindow, GrowingAtAnEdgeMovesItBackOntoThePicture) {
  SelectionWindow window;
  window.ChangeZoomLevel(4);
  ASSERT_TRUE(window.MoveTo(window.move_range().greatest));
  window.ChangeZoomLevel(0);
  EXPECT_EQ(window.position(), (Position{960, 540}));
}

TEST(SelectionWindow, RefusesLevelsThatItDoesNotHave) {
  SelectionWindow window;
  EXPECT_FALSE(window.ChangeZoomLevel(-1));
  EXPECT_FALSE(window.ChangeZoomLevel(SelectionWindow::kGreatestZoomLevel + 1));
  EXPECT_EQ(window.zoom_level(), 0);
}

TEST(SelectionWindow, RestoresPositionAndLevelTogether) {
  SelectionWindow window;
  window.ChangeZoomLevel(4);
  ASSERT_TRUE(window.Store({1500, 800}));
  EXPECT_NE(window.position(), (Position{1500, 800}));
  window.ChangeZoomLevel(0);
  EXPECT_FALSE(window.Store({1500, 800}));
  window.Restore();
  EXPECT_EQ(window.zoom_level(), 4);
  EXPECT_EQ(window.position(), (Position{1500, 800}));
}

}  // namespace
}  // namespace viewer
