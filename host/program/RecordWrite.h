// Writing one output record in one write call.
#ifndef HOST_PROGRAM_RECORDWRITE_H
#define HOST_PROGRAM_RECORDWRITE_H

#include <cstdio>
#include <string>

namespace host {

// Flushes out, then writes record to its descriptor in one write call
// (repeated only for what a short write leaves), so that when several
// programs share one pipe (as under xargs -P), records up to the pipe's
// atomic size never mix. A failing write drops the rest of the record.
void WriteRecord(std::FILE* out, const std::string& record);

} // namespace host

#endif
