#include "safe_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace pelagon_tool {

namespace {

// Read before main, while no other thread can create a file under the
// momentary zero mask that reading it takes.
const mode_t processUmask = [] {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}();

bool keepExisting = false;

}  // namespace

void keepExistingFiles() {
    keepExisting = true;
}

void refuseToClobber(const std::string& target) {
    std::error_code ec;
    if (keepExisting && std::filesystem::symlink_status(target, ec).type() != std::filesystem::file_type::not_found &&
        !ec)
        throw std::runtime_error("cannot write " + target + ": it exists, and --no-clobber keeps it");
}

std::string errnoText(int error) {
    std::string text = std::strerror(error);
    if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

TempFile::TempFile(std::string target) : target_(std::move(target)) {
    const std::filesystem::path t(target_);
    if (t.filename().empty()) fail("the name is a folder");
    refuseToClobber(target_);
    const std::filesystem::path folder = t.parent_path().empty() ? std::filesystem::path(".") : t.parent_path();
    // Appended piece by piece: GCC 12 at -O3 mistakes a literal-first
    // concatenation for an overlapping copy (-Wrestrict).
    std::string hidden(1, '.');
    hidden.append(t.filename().string()).append(".XXXXXX");
    const std::string pattern = (folder / hidden).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd < 0) failErrno(errno);
    temp_ = name.data();
    // mkstemp makes the file 0600; a finished file gets the usual rights.
    fchmod(fd, 0666 & ~processUmask);
    stream_ = fdopen(fd, "wb");
    if (!stream_) {
        const int error = errno;
        close(fd);
        failErrno(error);
    }
}

TempFile::~TempFile() {
    if (stream_) std::fclose(stream_);
    if (!committed_ && !temp_.empty()) std::remove(temp_.c_str());
}

void TempFile::fail(const std::string& why) const {
    throw std::runtime_error("cannot write " + target_ + ": " + why);
}

void TempFile::write(const std::string& bytes) {
    if (!stream_) fail("the file is already closed");
    if (std::fwrite(bytes.data(), 1, bytes.size(), stream_) != bytes.size()) failErrno(errno);
}

void TempFile::closeStream() {
    if (!stream_) return;
    std::FILE* s = stream_;
    stream_ = nullptr;
    if (std::fclose(s) != 0) failErrno(errno);
}

void TempFile::commit() {
    if (stream_) {
        if (std::fflush(stream_) != 0 || std::ferror(stream_)) failErrno(errno ? errno : EIO);
        if (fsync(fileno(stream_)) != 0) failErrno(errno);
        closeStream();
    } else {
        // Written by someone else: sync what is there.
        const int fd = open(temp_.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) failErrno(errno);
        const bool synced = fsync(fd) == 0;
        const int error = errno;
        close(fd);
        if (!synced) failErrno(error);
    }
    if (keepExisting) {
        // Another program may have made the file since the constructor
        // looked: only an atomic no-replace rename keeps it. Where the file
        // system has none, a hard link does the same.
        if (renameat2(AT_FDCWD, temp_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) != 0) {
            int error = errno;
            if (error == EINVAL || error == ENOSYS) error = link(temp_.c_str(), target_.c_str()) == 0 ? 0 : errno;
            if (error == EEXIST) refuseToClobber(target_);
            if (error != 0) failErrno(error);
            std::remove(temp_.c_str());  // linked: the target has the contents now
        }
    } else if (std::rename(temp_.c_str(), target_.c_str()) != 0) {
        failErrno(errno);
    }
    committed_ = true;
}

void writeWholeFile(const std::string& target, const std::string& bytes) {
    TempFile file(target);
    file.write(bytes);
    file.commit();
}

namespace {

// Why a file came out short: one more byte written and synced tells, when
// the disk is full or a size limit holds.
int whyShort(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) return errno;
    const char byte = '\n';
    int error = 0;
    if (::write(fd, &byte, 1) != 1 || fsync(fd) != 0) error = errno;
    close(fd);
    return error;
}

}  // namespace

void writeByName(const std::string& target, const std::function<void(const std::string&)>& writer,
                 const std::function<bool(std::string&)>& complete) {
    TempFile file(target);
    file.closeStream();
    try {
        writer(file.path());
    } catch (const std::exception&) {
        // The writer's own report names the temporary file; the cause, when
        // there is one to find, says more.
        if (const int error = whyShort(file.path())) file.failErrno(error);
        throw;
    }
    std::ifstream in(file.path(), std::ios::binary);
    if (!in) file.failErrno(errno);
    std::ostringstream text;
    text << in.rdbuf();
    in.close();
    std::string contents = text.str();
    const std::string original = contents;
    if (contents.empty() || !complete(contents)) {
        if (const int error = whyShort(file.path())) file.failErrno(error);
        file.fail("the file came out incomplete");
    }
    if (contents != original) {
        // Rewritten by the check: written again by us, checked as ever.
        TempFile rewritten(target);
        rewritten.write(contents);
        rewritten.commit();
        return;
    }
    file.commit();
}

}  // namespace pelagon_tool
