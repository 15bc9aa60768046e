// A private folder per fuzzing process for the files the targets write, so
// that nothing an input names can reach a file outside it; removed at exit.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

class FuzzFolder {
public:
    static const std::string& path() {
        static FuzzFolder folder;
        return folder.path_;
    }

    // `bytes` as the whole content of `name` in the folder; the full path.
    static std::string write(const char* name, const uint8_t* bytes, size_t size) {
        std::string file = path() + "/" + name;
        FILE* f = std::fopen(file.c_str(), "wb");
        if (!f || (size && std::fwrite(bytes, 1, size, f) != size) || std::fclose(f) != 0) {
            std::perror(file.c_str());
            std::abort();
        }
        return file;
    }

private:
    FuzzFolder() {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/pelagon-fuzz-XXXXXX";
        if (!mkdtemp(pattern.data())) {
            std::perror("mkdtemp");
            std::abort();
        }
        path_ = pattern;
    }
    ~FuzzFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string path_;
};
