#include "QRTVirtualPin.h"

#include "TreeFixture.h"
#include "support/ErrorMatchers.h"

namespace {

class QRTVirtualPinTest : public TreeFixture {};

TEST_F(QRTVirtualPinTest, NodesAndItemsAreDismissedOnce) {
  struct Record {
    int value;
  };
  QRTVirtualMemoryMgr& store = *tree.getMemoryMgr();
  QRTVirtualPageItem item;
  {
    auto record = QRTVirtualPin<Record>::alloc(store, sizeof(Record), item);
    record->value = 7;
    QRTVirtualPin<Record> moved(std::move(record));
    EXPECT_FALSE(record);  // NOLINT(bugprone-use-after-move): moved from means empty
    QRTVirtualPin<Record> second(store, item);
    EXPECT_EQ(second.get(), moved.get());
    second = std::move(moved);
    EXPECT_EQ(second->value, 7);
    EXPECT_EQ(pinned(tree), "Total Objects with reference count > 0 : 1");
  }
  EXPECT_EQ(pinned(tree), "");
  EXPECT_EQ((*QRTVirtualPin<const Record>(store, item)).value, 7);
  EXPECT_FALSE(QRTVirtualPin<Record>(store, QRTVirtualPageItem()));

  QRTVirtualPin<Letter> node(tree.createNode(Letter::getClassId()));
  Letter* const released = node.release();
  node.reset();
  EXPECT_EQ(pinned(tree), "Total Objects with reference count > 0 : 1");
  released->dismiss();

  // An object freed while pinned needs no dismiss any more.
  QRTVirtualPin<Record> gone(store, item);
  store.free(item);
}

TEST_F(QRTVirtualPinTest, RootsAndNullAreHarmlessAndStraysRefused) {
  QRTVirtualPin<QRTVirtualTreeNode> ofRoot(&root);
  QRTVirtualPin<QRTVirtualTreeNode> ofNull(nullptr);
  EXPECT_EQ(ofRoot.get(), &root);
  EXPECT_FALSE(ofNull);
  QRTVirtualTreeNode stray;
  expectRaised<QRTAssertError>([&] { QRTVirtualPin<QRTVirtualTreeNode>{&stray}; });
}

}  // namespace
