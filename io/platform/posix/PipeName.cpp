#include "io/platform/posix/PipeName.h"

#include <Poco/DigestEngine.h>
#include <Poco/SHA2Engine.h>

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

const std::size_t MAX_NAME_LENGTH = 256;

const char* const DIGEST_PREFIX = "%sha256-";
/// Half a digest: 128 bits still tell all names apart.
const std::size_t MIN_DIGEST_DIGITS = 32;

/// ASCII only, whatever the locale: client and server must agree.
char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool needsEscape(std::string_view name, std::size_t index) {
    const unsigned char c = static_cast<unsigned char>(name[index]);
    return c < 0x20 || c == 0x7F || c == '/' || c == '%' || (c == '.' && index == 0);
}

/// In small letters.
std::string escape(std::string_view name) {
    const char* const DIGITS = "0123456789ABCDEF";
    std::string file;
    file.reserve(name.size());
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (needsEscape(name, i)) {
            const unsigned char c = static_cast<unsigned char>(name[i]);
            file += '%';
            file += DIGITS[c >> 4];
            file += DIGITS[c & 0xF];
        } else {
            file += lowerCase(name[i]);
        }
    }
    return file;
}

/// Of the name in small letters.
std::string digest(std::string name, std::size_t room) {
    const std::string prefix = DIGEST_PREFIX;
    if (room < prefix.size() + MIN_DIGEST_DIGITS) {
        return std::string();
    }
    for (char& c : name) {
        c = lowerCase(c);
    }
    Poco::SHA2Engine engine(Poco::SHA2Engine::SHA_256);
    engine.update(name);
    return prefix + Poco::DigestEngine::digestToHex(engine.digest()).substr(0, room - prefix.size());
}

/// The value of a hexadecimal digit as escape() writes it; -1 for anything else.
int digitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

bool isPipeName(std::string_view name) {
    return !name.empty() && name.size() <= MAX_NAME_LENGTH && name.find('\\') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

std::string pipeFileName(std::string_view name, std::size_t room) {
    std::string file = escape(name);
    return file.size() <= room ? file : digest(std::string(name), room);
}

std::string pipeNameOf(const std::string& fileName) {
    std::string name;
    for (std::size_t i = 0; i < fileName.size(); ++i) {
        const bool isEscape = fileName[i] == '%' && i + 2 < fileName.size();
        const int high = isEscape ? digitValue(fileName[i + 1]) : -1;
        const int low = isEscape ? digitValue(fileName[i + 2]) : -1;
        if (high >= 0 && low >= 0) {
            name += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            name += fileName[i];
        }
    }
    return name;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
