#pragma once

#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace velpick {

/// An output that cannot be written; what() is "<file>: <reason>".
class OutputError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A file written under a temporary name in the target's folder and renamed onto the target
/// by Commit(), so that the target is either absent, unchanged or complete. Destroying an
/// uncommitted file removes the temporary.
class AtomicFile {
  public:
    /// Creates the temporary file; throws OutputError, creating nothing, when the target is a
    /// folder or its folder is not writable.
    explicit AtomicFile(std::filesystem::path target);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    const std::filesystem::path& Target() const { return m_target; }
    /// The open temporary file to write into.
    std::FILE* Stream() const { return m_stream; }
    /// Flushes and closes the temporary. Throws OutputError on any write error, leaving the
    /// target untouched. Several files are all closed before any is committed, so that a
    /// late write error leaves every target as it was.
    void Close();
    /// Closes the temporary if still open, then renames it onto the target. Throws
    /// OutputError on any error, leaving the target untouched.
    void Commit();

  private:
    [[noreturn]] void Fail(const char* action) const;

    std::filesystem::path m_target;
    std::filesystem::path m_temporary;
    std::FILE* m_stream = nullptr;
};

}  // namespace velpick
