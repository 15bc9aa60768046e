// Files written whole or not at all: everything goes to a temporary file
// beside the target (the same file system, so the final rename is atomic), is
// checked write by write, synced, and only then renamed over the target. A
// failure removes the temporary file and leaves an existing target as it was.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace pelagon_tool {

// The meaning of an errno value in lower case, as it reads inside a sentence
// ("no space left on device").
std::string errnoText(int error);

// --no-clobber: from here on no file the tool writes replaces one that exists.
void keepExistingFiles();
// Throws the tool's refusal when `target` exists and --no-clobber was given.
void refuseToClobber(const std::string& target);

class TempFile {
public:
    // Creates .NAME.XXXXXX in the folder of `target` (refused at once when
    // the target exists and must be kept).
    explicit TempFile(std::string target);
    ~TempFile();  // removes the temporary file unless committed
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return temp_; }
    const std::string& target() const { return target_; }

    // The open stream of the temporary file, for writers that want one
    // (libpng); commit() closes it. Null once closed.
    std::FILE* stream() const { return stream_; }
    void write(const std::string& bytes);
    // Closes the stream, leaving the file for another writer (the applet) to
    // open by name; commit() then syncs what that writer left.
    void closeStream();

    // Syncs, closes and renames over the target.
    void commit();

    // "cannot write TARGET: WHY", the message of every failure here.
    [[noreturn]] void fail(const std::string& why) const;
    [[noreturn]] void failErrno(int error) const { fail(errnoText(error)); }

private:
    std::string target_, temp_;
    std::FILE* stream_ = nullptr;
    bool committed_ = false;
};

// Writes `bytes` to `target` whole or not at all.
void writeWholeFile(const std::string& target, const std::string& bytes);

// Lets `writer` write the temporary file by its name (a writer that reports
// only a file it cannot open), then checks that it left a non-empty file that
// `complete` accepts before it replaces the target. `complete` gets the file's
// contents and may rewrite them (returns true to accept). When the file is
// short, the cause is looked for by writing to it once more (a full disk, a
// file size limit).
void writeByName(const std::string& target, const std::function<void(const std::string&)>& writer,
                 const std::function<bool(std::string&)>& complete);

}  // namespace pelagon_tool
