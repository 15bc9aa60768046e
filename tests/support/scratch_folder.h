// A folder of its own for each test, removed with its contents afterwards,
// and programs run in it the way a user runs them from a shell.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

inline std::string fileContents(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

struct ProcessOutcome {
    int status = -1;  // exit status; -1 when the process did not exit normally
    int signal = 0;   // the signal that ended it, if one did
    std::string out, err;
};

class ScratchFolder {
public:
    ScratchFolder() {
        char pattern[] = "/tmp/pelagon-test-XXXXXX";
        if (mkdtemp(pattern)) dir = pattern;
    }
    ~ScratchFolder() {
        if (!dir.empty()) std::filesystem::remove_all(dir);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string path(const std::string& name) const { return (dir / name).string(); }
    std::string write(const std::string& name, const std::string& contents) const {
        std::ofstream(path(name), std::ios::binary) << contents;
        return path(name);
    }
    // A name inside the folder, or any absolute path.
    std::string read(const std::string& name) const { return fileContents(dir / name); }

    // Runs the program with these arguments (each passed as it is), standard
    // input empty and standard output and error caught.
    ProcessOutcome run(const std::string& program, const std::vector<std::string>& args) const {
        // Appended piece by piece: GCC 12 at -O3 mistakes a literal-first
        // concatenation for an overlapping copy (-Wrestrict).
        const auto quoted = [](const std::string& s) { return std::string(1, '\'').append(s).append(1, '\''); };
        std::string command = "exec ";
        command += quoted(program);
        for (const std::string& a : args) command.append(1, ' ').append(quoted(a));
        command.append(" </dev/null >").append(quoted(path(".stdout"))).append(" 2>").append(quoted(path(".stderr")));
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
                read(".stdout"), read(".stderr")};
    }

    std::filesystem::path dir;
};
