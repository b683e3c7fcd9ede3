#include "tools/cvtp/Spool.h"

#include <ostream>
#include <stdexcept>
#include <vector>

#include "tools/cvtp/platform/TemporaryFile.h"

namespace Corvane {
namespace Tools {

Spool::Spool(std::size_t memoryLimitInBytes) : memoryLimit(memoryLimitInBytes) {}

void Spool::append(const char* data, std::size_t length) {
    if (isInMemory() && length > memoryLimit - memory.size()) {
        moveToFile();
    }
    if (isInMemory()) {
        memory.append(data, length);
    } else {
        writeToFile(data, length);
    }
    total += length;
}

void Spool::copyTo(std::ostream& out) {
    if (isInMemory()) {
        out.write(memory.data(), static_cast<std::streamsize>(memory.size()));
        return;
    }
    std::rewind(file.get());
    std::vector<char> block(64 * 1024);
    std::uintmax_t copied = 0;
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), file.get())) {
        out.write(block.data(), static_cast<std::streamsize>(count));
        copied += count;
    }
    if (copied != total) {
        throw std::runtime_error("cannot read a temporary file");
    }
}

void Spool::moveToFile() {
    file.reset(openTemporaryFile());
    if (file == nullptr) {
        throw std::runtime_error("cannot create a temporary file");
    }
    writeToFile(memory.data(), memory.size());
    memory = std::string();
}

void Spool::writeToFile(const char* data, std::size_t length) {
    if (std::fwrite(data, 1, length, file.get()) != length) {
        throw std::runtime_error("cannot write to a temporary file");
    }
}

}  // namespace Tools
}  // namespace Corvane
