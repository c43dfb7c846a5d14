# shellcheck shell=bash
# What the machine at hand can do. Sourced by the scripts beside this folder and by .ci/run.

# Whether 32-bit x86 programs run here: not every 64-bit kernel takes them. Needs g++-multilib.
qrt_runs_32_bit() {
  local program status=0
  program=$(mktemp)
  echo 'int main() {}' | g++ -m32 -x c++ -o "$program" - && "$program" 2>/dev/null || status=$?
  rm "$program"
  return "$status"
}
