#include "Fuzzer.h"
#include "model/ModelMachine.h"

// The input is the model machine's stream of choices.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  model::Choices choices(data, size);
  model::RunSettings settings;
  settings.realFiles = false;  // inputs are small: files in memory are quicker
  model::ModelMachine machine(choices, settings);
  const std::string problem = machine.run();
  require(problem.empty(), problem);
  return 0;
}
