// The commands that show how the library parses a message, and the stdin decoders.
#ifndef QLMAIL_TOOLS_MESSAGECOMMANDS_H
#define QLMAIL_TOOLS_MESSAGECOMMANDS_H

#include <string>
#include <vector>

// "b64" or "qp": standard input decoded to standard output.
int DecodeCommand(const std::string& strCmd);
// "parts" or "format", with the arguments behind the command's name.
int MessageCommand(const std::string& strCmd, const std::vector<std::string>& vArgs);

#endif
