#include "QRTVirtualPin.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/ErrorMatchers.h"
#include "support/RecordingEngine.h"

// What pins of plain objects ask of the engine; those of nodes are tested with the nodes.

namespace {

using Calls = std::vector<std::string>;

class QRTVirtualPinTest : public testing::Test {
 protected:
  QRTVirtualPinTest() {
    QRTVirtualPin<char>::alloc(manager, 8, item);
    record.take();
  }

  EngineRecord& record = EngineRecord::reset();
  QRTVirtualMemoryMgr manager{1U << 20U};
  QRTVirtualPageItem item;
};

TEST_F(QRTVirtualPinTest, ItemsAndOffsetsArePinnedAsTheTypeSays) {
  EXPECT_TRUE(QRTVirtualPin<char>(manager, item));
  EXPECT_TRUE(QRTVirtualPin<char>(manager, item.getOffset()));
  EXPECT_EQ(record.take(),
            (Calls{"GetAddress(1, true)", "Dismiss(1)", "GetAddress(1, true)", "Dismiss(1)"}));
  EXPECT_TRUE(QRTVirtualPin<const char>(manager, item));
  EXPECT_TRUE(QRTVirtualPin<const char>(manager, item.getOffset()));
  EXPECT_EQ(record.take(),
            (Calls{"GetAddress(1, false)", "Dismiss(1)", "GetAddress(1, false)", "Dismiss(1)"}));

  record.refuseGetAddress = true;
  EXPECT_FALSE(QRTVirtualPin<char>(manager, item.getOffset()));
  EXPECT_FALSE(QRTVirtualPin<char>::whole(manager, item));
  EXPECT_EQ(record.take(), (Calls{"GetAddress(1, true)", "GetAddress(1, true)"}));
  EXPECT_FALSE(QRTVirtualPin<char>(manager, 0));
  EXPECT_FALSE(QRTVirtualPin<char>(manager, QRTVirtualPageItem::getInvalidOffset()));
  EXPECT_FALSE(QRTVirtualPin<char>::whole(manager, QRTVirtualPageItem(0, 5)));
  EXPECT_EQ(record.take(), Calls());
}

TEST_F(QRTVirtualPinTest, AnObjectSmallerThanItsItemIsNotWhole) {
  EXPECT_TRUE(QRTVirtualPin<char>::whole(manager, item));
  EXPECT_TRUE(QRTVirtualPin<const char>::whole(manager, QRTVirtualPageItem(1, 3)));
  EXPECT_FALSE(QRTVirtualPin<const char>::whole(manager, QRTVirtualPageItem(1, 9)));
  EXPECT_EQ(record.take(), (Calls{"GetAddress(1, true)", "Dismiss(1)", "GetAddress(1, false)",
                                  "Dismiss(1)", "GetAddress(1, false)", "Dismiss(1)"}));
}

TEST_F(QRTVirtualPinTest, FollowingAnEmptyPinIsAnAssertion) {
  struct Record {
    int value;
  };
  QRTVirtualPin<Record> pin(manager, item);
  pin.release();
  const auto member = expectRaised<QRTAssertError>([&] { pin->value = 1; });
  EXPECT_THAT(textOf(member), testing::HasSubstr("an empty pin has no object"));
  expectRaised<QRTAssertError>([&] { (*pin).value = 1; });
  EXPECT_EQ(pin.get(), nullptr);
  manager.dismiss(item);
}

}  // namespace
