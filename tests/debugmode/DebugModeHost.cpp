// A host that somebody compiles with _GLIBCXX_DEBUG to find a mistake of his own.

#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ClassLayout.h"
#include "QRTAllocatorMap.h"
#include "QRTCore/QRTThrowable.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"
#include "QRTOverWriteReport.h"
#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"
#include "QRTVirtualFileStreamBuf.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualTree.h"
#include "QRTVirtualTreeNode.h"

namespace {

bool filesWork() {
  QRTVirtualFile file;
  file.open(1U << 20, 0, 4096, true);
  const std::vector<char> text(100000, 'x');
  file.write(text.data(), static_cast<unsigned int>(text.size()));
  file.close();
  file.seek(0, QRTFmFile::eSeekSet);
  std::vector<char> back(text.size());
  {
    QRTVirtualFileGZIPReader reader(file);
    if (reader.read(back.data(), static_cast<unsigned int>(back.size())) != back.size()) {
      return false;
    }
  }
  QRTVirtualFileStreamBuf buffer(file);
  std::ostream(&buffer) << "more" << std::flush;
  return back == text;
}

bool treesWork() {
  QRTVirtualTree tree(1U << 20, 0U, 64);
  tree.registerNodeCreator(QRTVirtualTreeNode::getClassId(), QRTVirtualTreeNode::create);
  auto* const node =
      static_cast<QRTVirtualTreeNode*>(tree.createNode(QRTVirtualTreeNode::getClassId()));
  tree.getRootNode()->appendChild(node);
  node->dismiss();
  QRTVirtualPageItem item;
  tree.getMemoryMgr()->allocUsingPool("shared", 6, item);
  std::ostringstream dump;
  tree.dumpTree(nullptr, dump);
  return !dump.str().empty();
}

bool allocatorsWork() {
  QRTMemoryArena arena(8, 1U << 20, 0);
  QRTMemoryPool pool(1U << 20, 4096);
  void* const blocks[] = {arena.alloc(24), arena.alloc(5000), pool.alloc(100)};
  const QRTOverWriteReport report(arena);
  std::ostringstream text;
  QRTAllocatorMap(arena).writeText(text);
  const bool whole = report.getCount() == 0 && !text.str().empty();
  arena.free(blocks[0]);
  arena.free(blocks[1]);
  pool.free(blocks[2]);
  return whole;
}

bool errorsWork() {
  try {
    QRTStdExceptionError(std::runtime_error("failed")).hurl({"host.cpp", 1}, nullptr, "QRT_THROW");
  } catch (const QRTThrowable& error) {
    const auto& trace = error.getBackTrace();
    return error.what() == std::string("failed") && trace.size() == 1 && trace[0].where.line == 1;
  }
}

}  // namespace

const char* useLibraryInDebugMode() {
  const std::pair<const char*, bool (*)()> parts[] = {{"files", filesWork},
                                                      {"trees", treesWork},
                                                      {"allocators", allocatorsWork},
                                                      {"errors", errorsWork}};
  for (const auto& [name, works] : parts) {
    if (!works()) {
      return name;
    }
  }
  return nullptr;
}
