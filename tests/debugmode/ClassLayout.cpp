#include "ClassLayout.h"

// Every public header and, for each exported class, QRT_EXPORTED_CLASS(name).
#include "ExportedHeaders.inc"

const ClassLayout QRT_LAYOUTS[] = {
#define QRT_EXPORTED_CLASS(name) {#name, sizeof(name), alignof(name)},
#include "ExportedClasses.inc"
    {nullptr, 0, 0}};
