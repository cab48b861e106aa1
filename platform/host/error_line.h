// How the parts of the host platform write to standard error.

#ifndef PARAMSET_HOST_ERROR_LINE_H
#define PARAMSET_HOST_ERROR_LINE_H

#include <string>

namespace host {

/// Writes one whole line to standard error, never interleaved with another. Line breaks within it become blanks, and a
/// line end is added. If standard error is closed, or is a pipe that nobody reads any more, the line is lost and
/// nothing else happens.
void writeErrorLine(std::string line);

}  // namespace host

#endif  // PARAMSET_HOST_ERROR_LINE_H
