#include "FileWork.h"

int main(int argc, char** argv) {
  FileOptions options;
  suite::Program program("Scratch files and gzip beside other ways to have them");
  program.option("--bytes", options.bytes, "bytes of a scratch file, below 2G");
  program.option("--accesses", options.accesses, "random reads of a scratch file, and writes");
  program.option("--page", options.pageBytes, "bytes of a page of a virtual file");
  program.option("--text", options.textBytes, "bytes to compress");
  addScratchPeers(program, options);
  addGzipPeers(program, options);
  return program.main(argc, argv);
}
