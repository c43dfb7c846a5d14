// A node class of one's own: a family tree in the store, dumped.

#include <iostream>

#include "QRTVirtualNodeClass.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "QRTVirtualTreeRange.h"

struct Person : QRTVirtualNodeClass<Person> {
  static constexpr const char* kClassName = "Person";
  int born = 0;
  void onInit() override { born = 1900; }
  void dump(std::ostream& os) override { os << ", born " << born; }
};

int main() {
  QRTVirtualTree tree(16U << 20);  // keeps at most 16 MiB in memory
  tree.registerNodeCreator(Person::getClassId(), Person::create);

  QRTVirtualPin<Person> mother = Person::make(tree);
  tree.getRootNode()->appendChild(mother.get());
  for (int i = 0; i < 3; ++i) {
    QRTVirtualPin<Person> child = Person::make(tree);
    child->born = mother->born + 25 + 2 * i;
    mother->appendChild(child.get());
  }  // each pin goes by itself, and the child may leave memory

  int youngest = 0;
  for (Person& child : QRTVirtualChildren<Person>(*mother)) {
    youngest = child.born;
  }
  std::cout << "the youngest was born in " << youngest << "\n\n";
  tree.dumpTree(nullptr, std::cout);
}
