#include "uci/streamwriter.h"

namespace quarn {

void OutputChannel::print(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vprint(format, args);
    va_end(args);
}

}  // namespace quarn
