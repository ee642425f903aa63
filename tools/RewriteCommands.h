#ifndef QLMAIL_TOOLS_REWRITECOMMANDS_H
#define QLMAIL_TOOLS_REWRITECOMMANDS_H

#include <string>

// The commands that rewrite a stored message in place (edit, set-body, banner, confirm-tag,
// edm-tag) and the attachment list of the parsed tree (attachments --tree).
extern const char* const kRewriteUsage;

bool IsRewriteCommand(const std::string& strCmd, int argc, char** argv);
// Exit code: 0 success, 1 failure, 2 bad usage.
int RunRewriteCommand(const std::string& strCmd, int argc, char** argv);

#endif
