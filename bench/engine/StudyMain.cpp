// Prints the tables that chose the replacement policy and the size classes.

#include <cstdio>

void PrintReplacementStudy();
void PrintSizeClassStudy();

int main(int argc, char**) {
  if (argc > 1) {
    std::puts(
        "engine_study: prints the tables that chose the replacement policy and the size classes.\n"
        "It takes no options.");
    return 0;
  }
  PrintReplacementStudy();
  PrintSizeClassStudy();
}
