#ifndef QLMAIL_TOOLS_REWRITECOMMANDS_H
#define QLMAIL_TOOLS_REWRITECOMMANDS_H

#include <string>
#include <vector>

// The commands that rewrite a stored message in place (edit, set-body, banner, confirm-tag,
// edm-tag) and the attachment list of the parsed tree (attachments --tree).
extern const char* const kRewriteUsage;

// vArgs are the arguments behind the command's name.
bool IsRewriteCommand(const std::string& strCmd, const std::vector<std::string>& vArgs);
// Exit code: 0 success, 1 failure, 2 bad usage.
int RewriteCommand(const std::string& strCmd, const std::vector<std::string>& vArgs);

#endif
