// pelagon shell: one board for a whole session, commands read from a
// terminal (a prompt with line editing, history and completion of commands,
// parameter names and enumeration symbols) or from a script file, so that
// settings persist from one command to the next.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace pelagon_tool {

// The words of a command line as a POSIX shell splits them: blanks separate,
// single quotes keep everything, double quotes keep all but \" and \\, a
// backslash outside quotes keeps the next character; a # that starts a word
// starts a comment. An unclosed quote throws UsageError.
std::vector<std::string> splitWords(const std::string& line);

// What the shell completes: commands as the first word, otherwise parameter
// names, and after NAME= the symbols of an enumeration.
struct ShellVocabulary {
    std::vector<std::string> commands;
    std::vector<std::string> names;
    std::map<std::string, std::vector<std::string>> symbols;
};

// Runs one command line and returns its exit status; `where` is "FILE:LINE"
// for lines of a script ("" at the prompt), for the messages to point at.
using ShellCommand = std::function<int(const std::vector<std::string>& words, const std::string& where)>;

// Reads command lines from `script` ("" or "-": standard input) and hands
// each to `run`; "quit", "exit" and the end of the input end the session.
// Lines from a file or a pipe stop at the first that fails, whose status
// becomes the shell's; at a terminal a failure is reported and the prompt
// comes back, as it does after Ctrl-C. History is kept in
// $HOME/.pelagon_history.
int runShell(const std::string& script, const ShellVocabulary& vocabulary, const ShellCommand& run);

}  // namespace pelagon_tool
