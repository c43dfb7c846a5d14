// Prints the tables that chose the replacement policy and the size classes.

void PrintReplacementStudy();
void PrintSizeClassStudy();

int main() {
  PrintReplacementStudy();
  PrintSizeClassStudy();
}
