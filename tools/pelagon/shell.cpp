#include "shell.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

#ifdef PELAGON_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#include "acquisition.h"
#include "session.h"

namespace pelagon_tool {

std::vector<std::string> splitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;
        } else if (c == '\'' || c == '"') {
            const std::size_t close = line.find(c, i + 1);
            std::size_t j = i + 1;
            if (c == '\'') {
                if (close == std::string::npos) throw UsageError("unclosed ' quote");
                word.append(line, j, close - j);
                i = close;
            } else {
                for (; j < line.size() && line[j] != '"'; ++j) {
                    if (line[j] == '\\' && j + 1 < line.size() && (line[j + 1] == '"' || line[j + 1] == '\\')) ++j;
                    word += line[j];
                }
                if (j >= line.size()) throw UsageError("unclosed \" quote");
                i = j;
            }
            inWord = true;
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

namespace {

bool isEnd(const std::vector<std::string>& words) {
    return words.size() == 1 && (words[0] == "quit" || words[0] == "exit");
}

// Lines from a file or a pipe: the first failure ends the run.
int runScript(std::istream& in, const std::string& name, const ShellCommand& run) {
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string where = name + ":" + std::to_string(number);
        std::vector<std::string> words;
        try {
            words = splitWords(line);
        } catch (const UsageError& e) {
            std::fprintf(stderr, "pelagon: %s: %s\n", where.c_str(), e.what());
            return 2;
        }
        if (words.empty()) continue;
        if (isEnd(words)) return 0;
        if (const int status = run(words, where); status != 0) return status;
    }
    return 0;
}

#ifdef PELAGON_HAVE_LIBEDIT

const ShellVocabulary* vocabulary = nullptr;
std::vector<std::string> candidates;
std::size_t nextCandidate = 0;

char* nextMatch(const char* text, int state) {
    if (state == 0) nextCandidate = 0;
    const std::size_t length = std::strlen(text);
    while (nextCandidate < candidates.size()) {
        const std::string& c = candidates[nextCandidate++];
        if (c.compare(0, length, text) == 0) return strdup(c.c_str());
    }
    return nullptr;
}

// What fits where the cursor is: a command first, symbols after NAME=,
// names elsewhere.
char** complete(const char* text, int start, int) {
    const std::string before(rl_line_buffer, static_cast<std::size_t>(start));
    candidates.clear();
    if (before.find_first_not_of(" \t") == std::string::npos) {
        candidates = vocabulary->commands;
        candidates.insert(candidates.end(), {"quit", "exit"});
    } else if (!before.empty() && before.back() == '=') {
        const std::size_t from = before.find_last_of(" \t") + 1;
        const auto found = vocabulary->symbols.find(before.substr(from, before.size() - 1 - from));
        if (found != vocabulary->symbols.end()) candidates = found->second;
    } else {
        candidates = vocabulary->names;
    }
    // set NAME= goes straight on to the value; other words end with a blank.
    const std::size_t first = before.find_first_not_of(" \t");
    const bool assigning = first != std::string::npos && before.compare(first, 4, "set ") == 0 && before.back() != '=';
    rl_completion_append_character = assigning ? '=' : before.empty() || before.back() != '=' ? ' ' : '\0';
    return rl_completion_matches(text, nextMatch);
}

std::string historyFile() {
    const char* home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.pelagon_history" : "";
}

int runPrompt(const ShellVocabulary& words, const ShellCommand& run) {
    vocabulary = &words;
    rl_attempted_completion_function = complete;
    // '=' ends a word, so that NAME= completes the value on its own.
    static char breaks[] = " \t\n\"'=";
    rl_completer_word_break_characters = breaks;
    const std::string history = historyFile();
    if (!history.empty()) read_history(history.c_str());
    stifle_history(1000);
    std::printf("pelagon shell: one board for the session; \"help\" lists the commands, \"quit\" ends\n");
    for (;;) {
        errno = 0;
        char* read = readline("pelagon> ");
        if (!read) {
            // Ctrl-C at the prompt drops the line; Ctrl-D ends the session.
            if (interruptSignal() != 0) {
                clearInterrupt();
                std::printf("\n");
                continue;
            }
            std::printf("\n");
            break;
        }
        const std::string line = read;
        std::free(read);
        std::vector<std::string> command;
        try {
            command = splitWords(line);
        } catch (const UsageError& e) {
            std::fprintf(stderr, "pelagon: %s\n", e.what());
            continue;
        }
        if (command.empty()) continue;
        add_history(line.c_str());
        if (isEnd(command)) break;
        run(command, "");
        clearInterrupt();
    }
    if (!history.empty()) write_history(history.c_str());
    return 0;
}

#endif

}  // namespace

int runShell(const std::string& script, const ShellVocabulary& vocabulary, const ShellCommand& run) {
    if (!script.empty() && script != "-") {
        std::ifstream in(script);
        if (!in) throw std::runtime_error("cannot read the script " + script + ": " + std::strerror(errno));
        return runScript(in, script, run);
    }
#ifdef PELAGON_HAVE_LIBEDIT
    if (isatty(STDIN_FILENO) == 1) return runPrompt(vocabulary, run);
#else
    (void)vocabulary;
#endif
    return runScript(std::cin, "<stdin>", run);
}

}  // namespace pelagon_tool
