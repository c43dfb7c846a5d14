#include "QRTVirtualNodeClass.h"

#include <stdexcept>

#include "QRTCore/QRTThreadGuard.h"
#include "QRTVirtualPin.h"
#include "TreeFixture.h"
#include "support/ErrorMatchers.h"

namespace {

// A node class written by hand, as docs/nodes.md describes it.
class Person : public QRTVirtualTreeNode {
 public:
  static unsigned int getClassId() { return computeClassId(s_classId, s_classIdLock, "Person"); }
  static QRTVirtualPersistNode* create(QRTVirtualContainer* container) {
    QRTVirtualPageItem item;
    auto* const person = new (container->alloc(sizeof(Person), item)) Person;
    person->setPageOffset(item.getOffset());
    person->setContainer(container);
    person->onInit();
    return person;
  }
  unsigned int getSize() override { return sizeof(Person); }
  const char* getClassName() override { return "Person"; }
  unsigned int getClassIdentifier() override { return getClassId(); }
  void destroy() override { destroyInPlace(this); }
  void onInit() override { known = getPageOffset() != 0 && getContainer() != nullptr; }
  void dump(std::ostream& os) override { os << " known: " << known; }

  bool known = false;

 private:
  static unsigned int s_classId;
  static QRTThreadCriticalSection s_classIdLock;
};
unsigned int Person::s_classId = 0;
QRTThreadCriticalSection Person::s_classIdLock(0);

class Unwilling : public QRTVirtualNodeClass<Unwilling> {
 public:
  static constexpr const char* kClassName = "Unwilling";
  static bool s_raise;
  Unwilling() {
    if (s_raise) {
      throw std::runtime_error("not now");
    }
  }
};
bool Unwilling::s_raise = false;

class QRTVirtualNodeClassTest : public TreeFixture {};

TEST_F(QRTVirtualNodeClassTest, ClassesWrittenByHandWork) {
  tree.registerNodeCreator(Person::getClassId(), Person::create);
  QRTVirtualPin<Person> person(tree.createNode(Person::getClassId()));
  EXPECT_EQ(person->getClassIdentifier(), Person::getClassId());
  EXPECT_NE(Person::getClassId(), QRTVirtualTreeNode::getClassId());
  root.appendChild(person.get());
  std::ostringstream os;
  tree.dumpTree(person.get(), os);
  EXPECT_EQ(os.str(), "**Dump of Virtual Tree**\n\nNode: Class: Person known: 1\n\n");
  person->destroy();
  EXPECT_STREQ(static_cast<QRTVirtualPersistNode*>(person.get())->getClassName(),
               "QRTVirtualPersistNode");
}

TEST_F(QRTVirtualNodeClassTest, ACreatorThatWasNeverRegisteredIsNamed) {
  const unsigned int id = Unwilling::getClassId();
  EXPECT_EQ(tree.createNode(id), nullptr);
  for (const bool registered : {false, true}) {
    if (registered) {
      tree.registerNodeCreator(id, nullptr);
    }
    const auto error = expectRaised<QRTAssertError>([&] { Unwilling::make(tree); });
    EXPECT_NE(textOf(error).find("class identifier " + std::to_string(id) + " ("),
              std::string::npos)
        << textOf(error);
    EXPECT_EQ(traceOf(error), (std::vector<TraceEntry>{{"QRTVirtualContainer.cpp",
                                                        "QRTVirtualContainer::createRegisteredNode",
                                                        "QRT_THROW"}}));
  }
  const QRTVirtualPin<Letter> made = Letter::make(tree);
  EXPECT_EQ(made->letter, '?');
  EXPECT_EQ(made->getContainer(), &tree);
}

TEST_F(QRTVirtualNodeClassTest, ConstructorsThatRaiseLeaveNothingAllocated) {
  const auto objects = [this] {
    std::ostringstream os;
    tree.dumpMapper(os);
    const std::string text = os.str();
    const auto at = text.find("Cumulative): ");
    return text.substr(at, text.find('/', at + 14) - at);
  };
  const std::string before = objects();
  Unwilling::s_raise = true;
  EXPECT_THROW(Unwilling::create(&tree), std::runtime_error);
  Unwilling::s_raise = false;
  EXPECT_EQ(objects(), before);
  expectRaised<QRTAssertError>([] { Unwilling::create(nullptr); });
}

}  // namespace
