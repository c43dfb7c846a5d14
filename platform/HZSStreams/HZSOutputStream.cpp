#include "HZSStreams/HZSOutputStream.h"

HZSOutputStream::~HZSOutputStream() = default;

void HZSOutputStream::flush() {}

void HZSOutputStream::close() {}
