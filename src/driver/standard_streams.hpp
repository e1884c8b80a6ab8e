// standard_streams: the three streams that a process is given, where one is missing or fails.
// It owns nothing. main calls it before anything is opened, the command line at its end.
#pragma once
#include <iosfwd>
#include <string>

namespace standard_streams {

/// Prepares the process, for good. A stream that was closed gets a file on which reading and writing fail: the next
/// file to be opened, perhaps the listing, would take its number and the lines of the console with it. Writing to a
/// closed pipe or beyond the limit of a file becomes a failed write like any other and kills nobody.
void prepare();

/// Why lines of the stream, which writes to the descriptor, were lost, blank when none were. A reader that closed its
/// end of a pipe has seen what it wanted: that counts as none lost.
[[nodiscard]] std::string loss(std::ostream& out, int descriptor);

}  // namespace standard_streams
