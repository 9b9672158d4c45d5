#include "atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace velpick {

namespace fs = std::filesystem;

AtomicFile::AtomicFile(fs::path target) : m_target(std::move(target)) {
    // Checked first, since renaming onto a folder would fail only at the commit.
    std::error_code ignored;
    if (fs::is_directory(m_target, ignored)) {
        errno = EISDIR;
        Fail("cannot replace");
    }
    // A hidden sibling, so that the rename stays within one file system.
    const fs::path folder = m_target.has_parent_path() ? m_target.parent_path() : fs::path(".");
    const std::string pattern =
        (folder / ("." + m_target.filename().string() + ".XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int descriptor = ::mkstemp(name.data());
    if (descriptor < 0)
        Fail("cannot create a file in its folder");
    m_temporary = name.data();
    m_stream = ::fdopen(descriptor, "wb");
    if (!m_stream) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
        Fail("cannot open");
    }
}

AtomicFile::~AtomicFile() {
    if (m_stream)
        std::fclose(m_stream);
    if (!m_temporary.empty()) {
        std::error_code ignored;
        fs::remove(m_temporary, ignored);
    }
}

void AtomicFile::Close() {
    if (!m_stream)
        return;
    const bool written = std::fflush(m_stream) == 0 && !std::ferror(m_stream);
    const int closed = std::fclose(m_stream);
    m_stream = nullptr;
    if (!written || closed != 0) {
        const int error = errno;
        std::error_code ignored;
        fs::remove(m_temporary, ignored);
        m_temporary.clear();  // nothing left to commit
        errno = error;
        Fail("cannot write");
    }
}

void AtomicFile::Commit() {
    Close();
    if (m_temporary.empty()) {
        errno = EIO;
        Fail("cannot write");
    }
    // mkstemp creates the file readable by its owner only; give it the usual permissions.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::chmod(m_temporary.c_str(), 0666 & ~mask);
    if (std::rename(m_temporary.c_str(), m_target.c_str()) != 0)
        Fail("cannot replace");
    m_temporary.clear();
}

void AtomicFile::Fail(const char* action) const {
    throw OutputError(m_target.string() + ": " + action + ": " + std::strerror(errno));
}

}  // namespace velpick
