#include "XmlTreeRun.h"

#include <filesystem>
#include <iostream>
#include <set>

#include "ByteSize.h"
#include "CanonicalComparison.h"
#include "DocumentEditor.h"
#include "DocumentWriter.h"
#include "HostProcess.h"
#include "NodeText.h"
#include "Outline.h"
#include "OutputFile.h"
#include "ParserMemory.h"
#include "PathFinder.h"
#include "ProgressBar.h"
#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualTreeRange.h"
#include "ResultTable.h"
#include "StoreStatistics.h"
#include "XmlError.h"

namespace example {

namespace {

constexpr int kFine = 0;
constexpr int kFailed = 1;

}  // namespace

XmlTreeRun::XmlTreeRun(const Options& options) : m_options(options), m_store(options.budget) {
  parser_memory::setLimit(options.parserMemory);
}

int XmlTreeRun::run() {
  if (m_options.command == Command::eCheck) {
    return check();
  }
  checkPaths();
  for (const std::string& input : m_options.inputs) {
    m_sources.add(input);
  }
  if (m_sources.sources().empty()) {
    throw XmlError("there is no .xml file under the directories given");
  }
  loadFiles();
  if (m_loaded.empty()) {
    return status();
  }
  int result = kFine;
  switch (m_options.command) {
    case Command::eLoad:
      if (m_options.verify) {
        verifyDocuments();
      }
      printTable();
      break;
    case Command::eFind:
      result = find();
      break;
    case Command::eExport:
      exportDocuments();
      break;
    case Command::eEdit:
      edit();
      break;
    case Command::eOutline:
      forEachDocument([&](XmlDocument& document, const Source&) {
        Outline(std::cout, m_options.depth, m_options.children).draw(document);
      });
      break;
    case Command::eCheck:
      break;  // did without documents
  }
  std::cout.flush();
  return result == kFine ? status() : result;
}

int XmlTreeRun::check() {
  parser_memory::setLimit(2 * m_options.parserMemory);  // two documents are parsed side by side
  CanonicalComparison comparison(m_options.inputs[0], m_options.inputs[1]);
  FilePieces other(m_options.inputs[1]);
  for (std::string_view piece = other.next(); !piece.empty(); piece = other.next()) {
    comparison.feed(piece);
  }
  comparison.finish();
  std::cout << "both documents say the same\n";
  return kFine;
}

/// Finds what is wrong with the paths before any file is looked for.
void XmlTreeRun::checkPaths() const {
  std::vector<std::string> paths = m_options.remove;
  paths.insert(paths.end(), {m_options.path, m_options.move, m_options.to, m_options.append});
  for (const std::string& path : paths) {
    if (!path.empty()) {
      static_cast<void>(PathExpression(path));
    }
  }
}

void XmlTreeRun::loadFiles() {
  ProgressBar progress("load", m_sources.bytes() * m_options.repeat);
  m_loading.start();
  for (unsigned int round = 0; round < m_options.repeat; ++round) {
    for (std::size_t file = 0; file < m_sources.sources().size(); ++file) {
      const std::string& path = m_sources.sources()[file].path;
      try {
        m_store.load(path, [&](std::uint64_t bytes) { progress.advance(bytes); });
        m_loaded.push_back(file);
      } catch (const QRTOutOfMemoryError&) {
        m_failed.add(path,
                     std::string("the store is full: ") + m_store.manager().getLastStoreError());
      } catch (const std::exception& error) {
        m_failed.add(error.what());
      }
    }
  }
  m_loading.stop();
  if (m_options.command == Command::eLoad) {
    progress.finish(formatCount(m_store.counts().documents) + " documents of " +
                    formatBytes(m_store.counts().xmlBytes));
  }
}

void XmlTreeRun::verifyDocuments() {
  parser_memory::setLimit(2 * m_options.parserMemory);  // two documents are parsed side by side
  ProgressBar progress("verify", m_loaded.size());
  forEachDocument([&](XmlDocument& document, const Source& source) {
    try {
      CanonicalComparison comparison(source.path, source.path + " (stored)");
      DocumentWriter([&](std::string_view text) { comparison.feed(text); }).writeDocument(document);
      comparison.finish();
      ++m_compared;
    } catch (const ParserMemoryError& error) {
      m_uncompared.add(error.what());  // written out, a document can be larger than its file
    } catch (const std::exception& error) {
      ++m_compared;
      m_different.add(error.what());
    }
    progress.advance(1);
  });
  progress.finish(formatCount(m_compared) + " documents compared with their files");
}

int XmlTreeRun::find() {
  PathFinder finder(PathExpression(m_options.path), false);
  std::uint64_t found = 0;
  forEachDocument([&](XmlDocument& document, const Source& source) {
    finder.search(document, [&](XmlNode& match) {
      if (found++ < m_options.limit || m_options.limit == 0) {
        std::cout << source.relative << ": " << describe(match) << '\n';
      }
      return true;
    });
  });
  if (m_options.limit != 0 && found > m_options.limit) {
    std::cout << "... and " << formatCount(found - m_options.limit) << " more\n";
  }
  std::cout << formatCount(found) << (found == 1 ? " match\n" : " matches\n");
  return found == 0 ? kFailed : kFine;
}

void XmlTreeRun::edit() {
  DocumentEditor editor(m_store);
  std::uint64_t removed = 0;
  for (const std::string& path : m_options.remove) {
    removed += editor.remove(PathExpression(path));
  }
  std::uint64_t moved = 0;
  if (!m_options.move.empty()) {
    moved = editor.move(PathExpression(m_options.move), PathExpression(m_options.to));
  }
  std::uint64_t appended = 0;
  if (!m_options.append.empty()) {
    appended = editor.append(PathExpression(m_options.append), m_options.xml);
  }
  if (removed + moved + appended == 0) {
    throw XmlError("the paths lead nowhere: nothing would be changed");
  }
  exportDocuments();
  std::cerr << formatCount(removed) << " removed, " << formatCount(moved) << " moved, "
            << formatCount(appended) << " appended\n";
}

void XmlTreeRun::exportDocuments() {
  namespace fs = std::filesystem;
  const bool intoDirectory = !m_options.output.empty() && m_sources.sources().size() > 1;
  std::set<std::string> written;
  forEachDocument([&](XmlDocument& document, const Source& source) {
    fs::path path = m_options.output;
    if (intoDirectory) {
      path /= source.relative;
      if (!written.insert(source.relative).second) {
        throw XmlError("two documents would become " + path.string());
      }
      fs::create_directories(path.parent_path());
    }
    OutputFile output(path.string());
    DocumentWriter([&](std::string_view text) { output.write(text); }).writeDocument(document);
    output.finish();
  });
}

void XmlTreeRun::forEachDocument(const std::function<void(XmlDocument&, const Source&)>& visit) {
  auto file = m_loaded.begin();
  for (XmlDocument& document : QRTVirtualChildren<XmlDocument>(*m_store.tree().getRootNode())) {
    visit(document, m_sources.sources()[*file++]);
  }
}

void XmlTreeRun::printTable() {
  const LoadCounts& counts = m_store.counts();
  const StoreStatistics statistics = readStatistics(m_store.manager());
  const std::uint64_t peak = peakResidentBytes();
  const std::uint64_t budget = m_options.budget;
  ResultTable table;
  table.add("documents", formatCount(counts.documents),
            formatCount(m_failed.count()) + " could not be loaded");
  table.add("  with a DTD elsewhere", formatCount(counts.unread),
            "not read: attributes it would add are missing");
  table.add("nodes", formatCount(counts.nodes()));
  table.add("  elements", formatCount(counts.elements),
            "with " + formatCount(counts.attributes) + " attributes");
  table.add("  texts", formatCount(counts.texts),
            "and " + formatCount(counts.indentations) + " indentations beside other nodes");
  table.add("  comments", formatCount(counts.comments));
  table.add("  instructions", formatCount(counts.instructions));
  table.add("bytes of XML", formatBytes(counts.xmlBytes));
  table.add("bytes stored", formatBytes(counts.storedBytes),
            "in " + formatCount(statistics.currentObjects) + " objects");
  table.add("budget", formatBytes(budget));
  table.add("peak resident memory", formatBytes(peak),
            peak > budget ? "the budget and " + formatBytes(peak - budget) : "");
  table.add("paging file", formatBytes(statistics.pagingFileSize),
            "pages of " + formatBytes(statistics.pageSize));
  table.add("page-outs", formatCount(statistics.pageOuts));
  table.add("page reads", formatCount(statistics.pageReads));
  table.add("load speed", formatSpeed(counts.xmlBytes, m_loading.seconds()), "parsing included");
  if (m_options.verify) {
    table.add("documents compared", formatCount(m_compared),
              "with a second parse of their files by the same parser");
    table.add("differences", formatCount(m_different.count()));
  }
  std::cout << '\n';
  table.print(std::cout, standardOutputColumns());
  std::cout.flush();
}

int XmlTreeRun::status() {
  m_sources.unreadable().print("could not be looked at");
  m_failed.print("files that could not be loaded");
  m_uncompared.print("documents that could not be compared");
  m_different.print("DIFFERENCES");
  const std::uint64_t pinned = readStatistics(m_store.manager()).pinnedObjects;
  if (pinned != 0) {
    std::cerr << "objects left pinned: " << formatCount(pinned) << '\n';
    m_store.manager().dumpReferences(std::cerr);
  }
  const std::uint64_t problems =
      m_failed.count() + m_uncompared.count() + m_different.count() + pinned;
  return problems == 0 ? kFine : kFailed;
}

}  // namespace example
