// What the command says of itself in other forms: completions of shells, a manual page, a page of the documentation.
#pragma once

#include <string>
#include <string_view>

namespace CLI
{
class App;
}

namespace velto::cli
{

// A script for bash, zsh or fish; empty for another shell.
std::string Completion(const CLI::App& app, std::string_view shell);

// For `man`, in roff.
std::string ManualPage(const CLI::App& app, std::string_view version);

// The same in Markdown.
std::string ManualMarkdown(const CLI::App& app);

} // namespace velto::cli
