// Standard error, as the parts of the host platform share it.

#ifndef PARAMSET_HOST_ERROR_LINE_H
#define PARAMSET_HOST_ERROR_LINE_H

#include <string>

namespace host {

/// Writes one whole line to standard error, never interleaved with another: line breaks within it become blanks and a
/// line end is added. Where standard error is closed, or its reader gone, the line is lost and nothing else happens.
void writeErrorLine(std::string line);

}  // namespace host

#endif  // PARAMSET_HOST_ERROR_LINE_H
