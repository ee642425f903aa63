// The commands that read a stored message through its format string, and the one that
// stores format strings beside messages.
#ifndef QLMAIL_TOOLS_READCOMMANDS_H
#define QLMAIL_TOOLS_READCOMMANDS_H

#include <string>
#include <vector>

// Each takes the arguments behind the command's name and gives the exit code.
int HeaderCommand(const std::vector<std::string>& vArgs);
int TextCommand(const std::vector<std::string>& vArgs);
int AttachmentsCommand(const std::vector<std::string>& vArgs);
int ExtractCommand(const std::vector<std::string>& vArgs);
int IndexCommand(const std::vector<std::string>& vArgs);

#endif
