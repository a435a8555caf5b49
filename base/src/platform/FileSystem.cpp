#include "platform/FileSystem.h"

#include "platform/StringHelper.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace tolm {

std::string FileSystem::executablePath() const {
    std::vector<char> buffer(4096);
    for (;;) {
        const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (length < 0)
            return {};
        if (static_cast<std::size_t>(length) < buffer.size())
            return {buffer.data(), std::size_t(length)};
        buffer.resize(buffer.size() * 2);
    }
}

std::wstring FileSystem::getFilePath(const std::wstring& path) const {
    const std::filesystem::path narrow(StringHelper::toString(path));
    std::error_code error;
    const auto absolute = std::filesystem::absolute(narrow, error);
    return StringHelper::decode((error ? narrow : absolute).lexically_normal().string());
}

std::string FileSystem::temporaryDirectory() const {
    const char* fromEnvironment = std::getenv("TMPDIR");
    std::string directory = (fromEnvironment && *fromEnvironment) ? fromEnvironment : "/tmp";
    while (directory.size() > 1 && directory.back() == separator)
        directory.pop_back();
    return directory;
}

bool FileSystem::exists(const std::string& path) const {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

bool FileSystem::isDirectory(const std::string& path) const {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::int64_t FileSystem::fileSize(const std::string& path) const {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return -1;
    return info.st_size;
}

bool FileSystem::createDirectories(const std::string& path) const {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error)
        errno = error.value();
    return !error && isDirectory(path);
}

bool FileSystem::removeFile(const std::string& path) const {
    return ::unlink(path.c_str()) == 0;
}

bool FileSystem::readFile(const std::string& path, std::string& contents) const {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        return false;
    contents = std::move(text).str();
    return true;
}

}  // namespace tolm
