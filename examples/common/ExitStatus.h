#ifndef EXAMPLES_COMMON_EXITSTATUS_H
#define EXAMPLES_COMMON_EXITSTATUS_H

namespace example {

/// What a program ends with: writes what is left for standard output, and when any of it could not
/// be written (a full device, a closed one) says so.
/// @param program  names the program in the message
/// @param status   what it would end with
/// @return `status`; 1 in place of 0 when output was lost
int exitStatus(const char* program, int status);

}  // namespace example

#endif  // EXAMPLES_COMMON_EXITSTATUS_H
