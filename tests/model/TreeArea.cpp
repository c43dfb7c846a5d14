#include "model/TreeArea.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "QRTVirtualTreeRange.h"
#include "model/Content.h"

namespace model {

namespace {

constexpr std::size_t kMostNodes = 300;

}  // namespace

TreeArea::TreeArea(ModelWorld& world) : ModelArea(world), m_tree(&world.manager()) {
  m_tree.registerNodeCreator(SmallNode::getClassId(), SmallNode::create);
  m_tree.registerNodeCreator(BigNode::getClassId(), BigNode::create);
  m_nodes[kRoot].offset = QRTVirtualPageItem::getInvalidOffset();
}

void TreeArea::step() {
  const std::uint32_t choice = choices().below(32);
  if (choice < 8) {
    append();
  } else if (choice < 12) {
    insertBeside(choice < 10);
  } else if (choice < 14) {
    replace();
  } else if (choice < 18) {
    remove();
  } else if (choice < 20) {
    removeRun();
  } else if (choice == 20) {
    moveAll();
  } else if (choice < 23) {
    appendChain();
  } else if (choice < 26) {
    freeLoose();
  } else if (choice < 29) {
    mistake();
  } else if (choice < 31) {
    navigate();
  } else {
    dump();
  }
}

// Pins a node, which can fail when something is made to fail.
TreeArea::Held TreeArea::hold(Number number) {
  if (number == kRoot) {
    return {Pin(), m_tree.getRootNode()};
  }
  Held held;
  const std::uint64_t offset = m_nodes.at(number).offset;
  const Attempt tried = attempt([&] { held.pin = Pin(m_tree.getNode(offset)); });
  require(tried.well(), "getNode raised ", tried.text);
  require(held.pin || tried.faulted, "no node: ", manager().getLastStoreError());
  held.node = held.pin.get();
  require(!held.pin || held.pin->number == number, "another node");
  return held;
}

// Makes a loose node; kNone when there is no room.
TreeArea::Number TreeArea::create() {
  const bool big = choices().oneIn(8);
  note("createNode", m_lastNumber + 1, big ? 1 : 0);
  QRTVirtualPersistNode* made = nullptr;
  const Attempt tried = attempt(
      [&] { made = m_tree.createNode(big ? BigNode::getClassId() : SmallNode::getClassId()); });
  if (!tried.well()) {
    require(tried.ended == Ended::kOutOfMemory, "createNode raised ", tried.text);
    return kNone;
  }
  const Pin node(made);
  node->number = ++m_lastNumber;
  if (big) {
    fill(static_cast<BigNode*>(node.get())->ballast, sizeof BigNode::ballast, m_lastNumber);
  }
  require(!m_world.isOwned(node->getPageOffset()), "an offset twice");
  m_nodes[m_lastNumber].offset = node->getPageOffset();
  m_nodes[m_lastNumber].big = big;
  m_loose.push_back(m_lastNumber);
  return m_lastNumber;
}

// A loose node that `target` is not below, an old one or a new one; kNone when there is none.
TreeArea::Number TreeArea::takeLoose(bool mayKeepLinks, Number target) {
  if (!m_loose.empty() && (choices().oneIn(2) || m_nodes.size() > kMostNodes)) {
    const Number loose = any(m_loose);
    if ((mayKeepLinks || !m_nodes.at(loose).keepsLinks) && !isBelow(target, loose)) {
      return loose;
    }
  }
  return m_nodes.size() > kMostNodes ? kNone : create();
}

TreeArea::Number TreeArea::anyNode(bool withRoot) {
  auto node = m_nodes.lower_bound(choices().below(m_lastNumber + 1));
  node = node == m_nodes.end() ? std::prev(node) : node;
  return node->first != kRoot || withRoot ? node->first : kNone;
}

// A node that has a parent; kNone when none is found.
TreeArea::Number TreeArea::anyAttached() {
  const Number number = anyNode(false);
  return number != kNone && m_nodes.at(number).parent != kNone ? number : kNone;
}

bool TreeArea::isBelow(Number node, Number above) const {
  for (; node != kNone && node != above; node = m_nodes.at(node).parent) {
  }
  return node == above;
}

std::size_t TreeArea::placeOf(Number number) const {
  const std::vector<Number>& all = m_nodes.at(m_nodes.at(number).parent).children;
  return static_cast<std::size_t>(std::find(all.begin(), all.end(), number) - all.begin());
}

void TreeArea::attach(Number number, Number parent, std::size_t place) {
  auto& all = m_nodes.at(parent).children;
  all.insert(all.begin() + static_cast<std::ptrdiff_t>(place), number);
  m_nodes.at(number).parent = parent;
  m_loose.erase(std::find(m_loose.begin(), m_loose.end(), number));
}

void TreeArea::detach(Number number, bool keepsLinks) {
  Node& node = m_nodes.at(number);
  auto& all = m_nodes.at(node.parent).children;
  all.erase(all.begin() + static_cast<std::ptrdiff_t>(placeOf(number)));
  node.former = node.parent;
  node.parent = kNone;
  node.keepsLinks = keepsLinks;
  m_loose.push_back(number);
}

// Edits, and notes in the model what came of it: everything or nothing.
void TreeArea::edit(Number parent, const std::function<void()>& call,
                    const std::function<void()>& apply) {
  const Attempt tried = attempt(call);
  if (tried.well()) {
    apply();
  } else {
    require(tried.ended == Ended::kAssert, "an edit raised ", tried.text);
  }
  compareChildren(parent);
}

void TreeArea::append() {
  const Number parent = anyNode(true);
  const Number child = takeLoose(true, parent);
  if (child == kNone) {
    return;
  }
  const Held above = hold(parent);
  const Held below = hold(child);
  if (above.node != nullptr && below.node != nullptr) {
    note("appendChild", parent, child);
    edit(
        parent, [&] { above.node->appendChild(below.node); },
        [&] { attach(child, parent, m_nodes.at(parent).children.size()); });
  }
}

void TreeArea::insertBeside(bool after) {
  const Number place = anyAttached();
  const Number sibling = place == kNone ? kNone : takeLoose(!after, place);
  if (sibling == kNone) {
    return;
  }
  const Number parent = m_nodes.at(place).parent;
  const Held at = hold(place);
  const Held fresh = hold(sibling);
  if (at.node != nullptr && fresh.node != nullptr) {
    note(after ? "insertAfter" : "insertBefore", place, sibling);
    edit(
        parent,
        [&] { after ? at.node->insertAfter(fresh.node) : at.node->insertBefore(fresh.node); },
        [&] { attach(sibling, parent, placeOf(place) + (after ? 1 : 0)); });
  }
}

void TreeArea::replace() {
  const Number old = anyAttached();
  const Number fresh = old == kNone ? kNone : takeLoose(true, old);
  if (fresh == kNone) {
    return;
  }
  const Number parent = m_nodes.at(old).parent;
  const Held above = hold(parent);
  const Held oldNode = hold(old);
  const Held freshNode = hold(fresh);
  if (above.node != nullptr && oldNode.node != nullptr && freshNode.node != nullptr) {
    note("replaceChild", old, fresh);
    edit(
        parent, [&] { above.node->replaceChild(oldNode.node, freshNode.node); },
        [&] {
          const std::size_t place = placeOf(old);
          detach(old, true);
          attach(fresh, parent, place);
        });
  }
}

void TreeArea::remove() {
  const Number child = anyAttached();
  if (child == kNone) {
    return;
  }
  const Number parent = m_nodes.at(child).parent;
  const Held above = hold(parent);
  const Held below = hold(child);
  if (above.node != nullptr && below.node != nullptr) {
    note("removeChild", parent, child);
    edit(
        parent, [&] { above.node->removeChild(below.node); }, [&] { detach(child, false); });
  }
}

void TreeArea::removeRun() {
  const Number parent = anyNode(true);
  const std::vector<Number> all = m_nodes.at(parent).children;
  if (all.empty()) {
    return;
  }
  const auto count = static_cast<std::uint32_t>(all.size());
  const std::uint32_t begin = choices().below(count);
  const std::uint32_t end = begin + 1 + choices().below(count - begin);
  // An end of the list may be given as null.
  const bool fromFirst = begin == 0 && choices().oneIn(2);
  const bool toLast = end == count && choices().oneIn(2);
  const Held above = hold(parent);
  const Held first = fromFirst ? Held() : hold(all[begin]);
  const Held last = toLast ? Held() : hold(all[end - 1]);
  if (above.node == nullptr || (first.node == nullptr && !fromFirst) ||
      (last.node == nullptr && !toLast)) {
    return;
  }
  note("removeChildren", parent, end - begin);
  edit(
      parent, [&] { above.node->removeChildren(first.node, last.node); },
      [&] {
        for (std::uint32_t i = begin; i < end; ++i) {
          // A node that is removed alone loses its siblings' links.
          detach(all[i], end - begin != 1);
        }
      });
}

// Removes all children of a node, which stay a chain, and appends this to another's.
void TreeArea::moveAll() {
  const Number from = anyNode(true);
  const Number to = anyNode(true);
  const std::vector<Number> all = m_nodes.at(from).children;
  if (all.size() < 2 || from == to || isBelow(to, from)) {
    return;
  }
  const Held source = hold(from);
  const Held target = hold(to);
  const Held first = hold(all[0]);
  if (source.node == nullptr || target.node == nullptr || first.node == nullptr) {
    return;
  }
  note("move all children", from, to);
  bool removed = false;
  edit(
      from, [&] { source.node->removeChildren(nullptr, nullptr); },
      [&] {
        removed = true;
        std::for_each(all.begin(), all.end(), [&](Number child) { detach(child, true); });
      });
  if (removed) {
    edit(
        to, [&] { target.node->appendChildren(first.node); },
        [&] {
          for (const Number child : all) {
            attach(child, to, m_nodes.at(to).children.size());
          }
        });
  }
}

void TreeArea::appendChain() {
  const Number parent = anyNode(true);
  std::vector<Number> chain;
  std::vector<Held> nodes;
  for (std::uint32_t i = choices().below(5) + 1; i > 0 && m_nodes.size() < kMostNodes; --i) {
    const Number number = create();
    Held node;
    if (number == kNone || (node = hold(number)).node == nullptr) {
      break;
    }
    bool linked = true;
    if (!nodes.empty()) {
      const Attempt tried = attempt([&] { nodes.back().node->insertAfter(node.node); });
      require(tried.well() || tried.ended == Ended::kAssert, "an edit raised ", tried.text);
      linked = tried.well();
    }
    if (!linked) {
      break;
    }
    chain.push_back(number);
    nodes.push_back(std::move(node));
    m_nodes.at(number).keepsLinks = true;
  }
  const Held above = hold(parent);
  if (chain.empty() || above.node == nullptr) {
    return;
  }
  note("appendChildren", parent, chain.size());
  edit(
      parent, [&] { above.node->appendChildren(nodes[0].node); },
      [&] {
        for (const Number child : chain) {
          attach(child, parent, m_nodes.at(parent).children.size());
        }
      });
}

void TreeArea::freeLoose() {
  if (!m_loose.empty()) {
    const Number number = any(m_loose);
    note("free a subtree", number);
    m_loose.erase(std::find(m_loose.begin(), m_loose.end(), number));
    freeSubtree(number);
  }
}

// A node that cannot be read is freed without being destroyed.
void TreeArea::freeSubtree(Number number) {
  for (const Number child : m_nodes.at(number).children) {
    freeSubtree(child);
  }
  QRTVirtualPageItem item(m_nodes.at(number).offset, 0);
  Held held = hold(number);
  if (held.pin) {
    item = held.pin->getVirtualPageItem();
    require(item.getSize() == (m_nodes.at(number).big ? sizeof(BigNode) : sizeof(SmallNode)),
            "a node of another size");
    held.pin.release()->destroy();
    if (choices().oneIn(2)) {
      manager().dismiss(item);
    }
  }
  attempt([&] { m_tree.free(item); }, May::kLeak);
  m_nodes.erase(number);
}

// Each mistake is refused and changes nothing.
void TreeArea::mistake() {
  const std::uint32_t kind = choices().below(11);
  const Number number = anyNode(false);
  if (number == kNone) {
    return;
  }
  const Node& node = m_nodes.at(number);
  const Number parent = node.parent;
  const auto childOf = [&](Number of, bool last) {
    const auto& all = m_nodes.at(of).children;
    return all.empty() ? kNone : last ? all.back() : all.front();
  };
  const Held at = hold(number);
  if (at.node == nullptr) {
    return;
  }
  Held other;
  Held above;
  std::function<void()> call;
  const auto with = [&](Number second, std::function<void()> what) {
    if (second != kNone && (other = hold(second)).node != nullptr) {
      call = std::move(what);
    }
  };
  switch (kind) {
    case 0:
      call = [&] { at.node->appendChild(choices().oneIn(2) ? nullptr : at.node); };
      break;
    case 1:
      call = [&] { at.node->insertAfter(choices().oneIn(2) ? nullptr : at.node); };
      break;
    case 2:
      call = [&] { at.node->appendChild(m_tree.getRootNode()); };
      break;
    case 3:
      with(childOf(number, choices().oneIn(2)), [&] { at.node->appendChild(other.node); });
      break;
    case 4:
      with(childOf(number, choices().oneIn(2)), [&] { other.node->appendChild(at.node); });
      break;
    case 5:  // what is not a child
      with(anyAttached(), [&] { at.node->removeChild(other.node); });
      if (call && (m_nodes.at(other.pin->number).parent == number)) {
        return;
      }
      break;
    case 6:  // what was removed before
      if (parent == kNone && !node.keepsLinks && m_nodes.count(node.former) != 0) {
        with(node.former, [&] { other.node->removeChild(at.node); });
      }
      break;
    case 7:  // a run the wrong way round
      if (parent != kNone && childOf(parent, false) != number &&
          (above = hold(parent)).node != nullptr) {
        with(childOf(parent, false), [&] { above.node->removeChildren(at.node, other.node); });
      }
      break;
    case 8:  // a sibling that is one already
      if (parent != kNone && childOf(parent, true) != number) {
        with(m_nodes.at(parent).children[placeOf(number) + 1],
             [&] { at.node->insertAfter(other.node); });
      }
      break;
    case 9:
      if (parent != kNone && childOf(parent, true) != number) {
        with(m_nodes.at(parent).children[placeOf(number) + 1],
             [&] { at.node->insertBefore(other.node); });
      }
      break;
    default:
      call = [&] { at.node->replaceChild(nullptr, at.node); };
  }
  if (!call) {
    return;
  }
  note("mistake", kind, number);
  const Attempt tried = attempt(call, May::kRaise);
  require(tried.ended == Ended::kAssert, "a mistake was not refused: ", kind);
  compareChildren(number);
  if (parent != kNone) {
    compareChildren(parent);
  }
}

// What a node says about its neighbours.
void TreeArea::navigate() {
  const Number number = anyAttached();
  if (number == kNone) {
    return;
  }
  note("navigate", number);
  const Node& node = m_nodes.at(number);
  const Held at = hold(number);
  if (at.node == nullptr) {
    return;
  }
  const auto& all = m_nodes.at(node.parent).children;
  const std::size_t place = placeOf(number);
  const auto expect = [&](Number wanted, const std::function<QRTVirtualTreeNode*()>& go) {
    QRTVirtualTreeNode* found = nullptr;
    const Attempt tried = attempt([&] { found = go(); });
    require(tried.well() && (found != nullptr || wanted == kNone || tried.faulted),
            "no neighbour: ", tried.text);
    require(found == nullptr || wanted != kNone, "a neighbour of nothing");
    if (found != nullptr) {
      require(found->getPageOffset() == m_nodes.at(wanted).offset, "another neighbour");
      found->dismiss();
    }
  };
  const auto& below = node.children;
  expect(below.empty() ? kNone : below.front(), [&] { return at.node->getFirstChild(); });
  expect(below.empty() ? kNone : below.back(), [&] { return at.node->getLastChild(); });
  expect(place == 0 ? kNone : all[place - 1], [&] { return at.node->getPreviousSibling(0); });
  expect(place + 1 == all.size() ? kNone : all[place + 1],
         [&] { return at.node->getNextSibling(0); });
  expect(node.parent, [&] { return at.node->getParent(1); });
  expect(node.parent == kRoot ? kNone : node.parent, [&] { return at.node->getParent(0); });
}

void TreeArea::dump() {
  note("dumpTree");
  std::ostringstream os;
  const Attempt tried = attempt([&] { m_tree.dumpTree(nullptr, os); });
  if (!tried.well()) {
    require(tried.ended == Ended::kAssert || tried.memoryFaulted, "a dump raised ", tried.text);
    return;
  }
  std::string expected;
  const std::function<void(Number, std::size_t)> write = [&](Number number, std::size_t depth) {
    for (const Number child : m_nodes.at(number).children) {
      expected += std::string(depth, '-') +
                  "Node: Class: " + (m_nodes.at(child).big ? "BigNode " : "SmallNode ") +
                  std::to_string(child) + '\n';
      write(child, depth + 1);
    }
  };
  write(kRoot, 1);
  const std::string text = os.str();
  // A stream whose memory was refused says less.
  require(tried.memoryFaulted || text.find(expected) != std::string::npos, "another dump");
}

// The children of a node and what they say of each other, as far as they can be read.
void TreeArea::compareChildren(Number parent) {
  const Held above = hold(parent);
  if (above.node == nullptr) {
    return;
  }
  const auto& children = m_nodes.at(parent).children;
  require(above.node->getChildCount() == children.size() &&
              above.node->hasChildren() == (children.empty() ? 0 : 1),
          "node ", parent, " has ", above.node->getChildCount(), " children");
  const auto offsetOf = [&](std::size_t place) {
    return place < children.size() ? m_nodes.at(children[place]).offset : 0;
  };
  require(above.node->getFirstChildPageItem().getOffset() == offsetOf(0), "another first child");
  require(above.node->getLastChildPageItem().getOffset() == offsetOf(children.size() - 1),
          "another last child");
  for (std::size_t place = 0; place < children.size(); ++place) {
    const Held child = hold(children[place]);
    if (child.node != nullptr) {
      require(child.node->getPreviousSiblingPageItem().getOffset() == offsetOf(place - 1) &&
                  child.node->getNextSiblingPageItem().getOffset() == offsetOf(place + 1) &&
                  child.node->getParentPageItem().getOffset() == m_nodes.at(parent).offset,
              "child ", children[place], " of ", parent, " has other neighbours");
    }
  }
}

void TreeArea::compareSubtree(Number top) {
  std::vector<Number> expected;
  const std::function<void(Number)> visit = [&](Number number) {
    expected.push_back(number);
    compareChildren(number);
    std::for_each(m_nodes.at(number).children.begin(), m_nodes.at(number).children.end(), visit);
  };
  visit(top);
  std::size_t seen = 0;
  const Held start = hold(top);
  for (QRTVirtualTreeWalk walk(*start.node); !walk.atEnd(); walk.advance(), ++seen) {
    if (walk.node() != m_tree.getRootNode()) {
      auto* const node = static_cast<Numbered*>(walk.node());
      require(seen < expected.size() && node->number == expected[seen], "a walk went elsewhere");
      require(!m_nodes.at(node->number).big || holds(static_cast<BigNode*>(node)->ballast,
                                                     sizeof BigNode::ballast, node->number),
              "node ", node->number, " has another content");
    }
  }
  require(seen == expected.size(), "a walk ended early");
}

void TreeArea::verify() {
  note("verify");
  compareSubtree(kRoot);
  for (const Number loose : m_loose) {
    compareSubtree(loose);
  }
}

void TreeArea::clear() {
  m_tree.getRootNode()->removeChildren(nullptr, nullptr);
  for (const Number child : m_nodes.at(kRoot).children) {
    freeSubtree(child);
  }
  for (const Number loose : m_loose) {
    freeSubtree(loose);
  }
  m_loose.clear();
  m_nodes.at(kRoot).children.clear();
}

bool TreeArea::owns(std::uint64_t offset) const {
  return std::any_of(m_nodes.begin(), m_nodes.end(),
                     [&](const auto& node) { return node.second.offset == offset; });
}

}  // namespace model
