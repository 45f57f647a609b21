#include "framework/save_watch.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

ConfStamp Stamp(int number) {
  ConfStamp stamp;
  stamp.exists = true;
  stamp.size = number;
  return stamp;
}

TEST(SaveWatch, AFileThatNobodyTouchedIsExplained) {
  const SaveWatch watch;
  EXPECT_TRUE(watch.Explains("/f", Stamp(1), Stamp(1)));
  EXPECT_FALSE(watch.Explains("/f", Stamp(1), Stamp(2)));
}

TEST(SaveWatch, AChainOfOwnSavesIsExplained) {
  const SaveWatch watch;
  SaveWatch::Saved("/f", Stamp(1), Stamp(2));
  SaveWatch::Saved("/other", Stamp(2), Stamp(9));
  SaveWatch::Saved("/f", Stamp(2), Stamp(3));
  EXPECT_TRUE(watch.Explains("/f", Stamp(1), Stamp(3)));
  EXPECT_TRUE(watch.Explains("/f", Stamp(2), Stamp(3)));
  EXPECT_FALSE(watch.Explains("/f", Stamp(1), Stamp(2))) << "a later save led on";
  EXPECT_FALSE(watch.Explains("/f", Stamp(1), Stamp(4))) << "somebody came after";
}

TEST(SaveWatch, WhatSomebodyElseDidInBetweenBreaksTheChain) {
  const SaveWatch watch;
  SaveWatch::Saved("/f", Stamp(1), Stamp(2));
  SaveWatch::Saved("/f", Stamp(5), Stamp(6));
  EXPECT_FALSE(watch.Explains("/f", Stamp(1), Stamp(6)));
}

TEST(SaveWatch, ASaveThatTookSomethingOverExplainsNothing) {
  const SaveWatch watch;
  SaveWatch::Saved("/f", ConfStamp{}, Stamp(2));
  EXPECT_FALSE(watch.Explains("/f", Stamp(1), Stamp(2)));
}

TEST(SaveWatch, EachWatchKnowsTheSavesOfItsOwnLife) {
  SaveWatch::Saved("/f", Stamp(1), Stamp(2));
  const SaveWatch outer;
  {
    const SaveWatch inner;
    SaveWatch::Saved("/f", Stamp(2), Stamp(3));
    EXPECT_TRUE(inner.Explains("/f", Stamp(2), Stamp(3)));
  }
  EXPECT_FALSE(outer.Explains("/f", Stamp(1), Stamp(3)));
  EXPECT_TRUE(outer.Explains("/f", Stamp(2), Stamp(3)));
}

TEST(SaveWatch, SavesOfAllThreadsCount) {
  const SaveWatch watch;
  std::jthread([] { SaveWatch::Saved("/f", Stamp(1), Stamp(2)); }).join();
  EXPECT_TRUE(watch.Explains("/f", Stamp(1), Stamp(2)));
}

}  // namespace
