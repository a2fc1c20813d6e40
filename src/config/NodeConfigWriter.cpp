#include "NodeConfigWriter.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "ConfigLineReader.h"
#include "UniqueFd.h"

namespace {

constexpr char kNodeHeader[] = "[node]\n";
constexpr char kGroupHeader[] = "[group]\n";

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The next piece with its newline, if it has one, and whatever NUL bytes it holds, so that a copy
// keeps every byte; cut where ConfigLineReader cuts.
bool nextPiece(FILE* stream, std::string& piece) {
    piece.clear();
    while (piece.size() < ConfigLineReader::kBufferBytes - 1) {
        const int byte = std::getc(stream);
        if (byte == EOF) {
            break;
        }
        piece += static_cast<char>(byte);
        if (byte == '\n') {
            break;
        }
    }
    return !piece.empty();
}

bool write(FILE* to, const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), to) == text.size();
}

std::string nodeLine(const CNode& node) {
    return node.getName() + "=" + node.getMac() + "," + node.getIp() + ":" +
           std::to_string(node.getPort()) + "\n";
}

// Copies all lines and puts the new one before the first group section behind a node section, or at
// the end, with a header of its own when the file has no node section.
bool copyWithNode(FILE* from, FILE* to, const CNode& node) {
    bool nodeSection = false;
    bool written = false;
    std::string piece;
    std::string last = "\n";
    for (; nextPiece(from, piece); last = piece) {
        if (piece == kNodeHeader) {
            nodeSection = true;
        } else if (piece == kGroupHeader && nodeSection && !written) {
            written = true;
            if (!write(to, nodeLine(node))) {
                return false;
            }
        }
        if (!write(to, piece)) {
            return false;
        }
    }
    if (written) {
        return true;
    }
    std::string end = last.back() == '\n' ? "" : "\n";
    if (!nodeSection) {
        end += kNodeHeader;
    }
    return write(to, end + nodeLine(node));
}

bool copyCorrected(FILE* from, FILE* to, const CNode& node) {
    const std::string mac = node.getMac();
    std::string piece;
    while (nextPiece(from, piece)) {
        const std::string::size_type equals = piece.find('=');
        if (equals != std::string::npos && contains(piece, node.getIp()) &&
            contains(piece, node.getName())) {
            // A shorter rest is overwritten up to the end of the line, never beyond it.
            const std::string::size_type end =
                piece.back() == '\n' ? piece.size() - 1 : piece.size();
            piece.replace(equals + 1, std::min(mac.size(), end - equals - 1), mac);
        }
        if (!write(to, piece)) {
            return false;
        }
    }
    return true;
}

// Gives the copy the owner and mode of the original and flushes it to the disk.
bool takeOver(const struct stat& original, int fd) {
    struct stat copy {};
    if (::fstat(fd, &copy) != 0) {
        return false;
    }
    // A user who may write here without owning the file makes it his own.
    if ((copy.st_uid != original.st_uid || copy.st_gid != original.st_gid) &&
        ::fchown(fd, original.st_uid, original.st_gid) != 0 && errno != EPERM) {
        return false;
    }
    return ::fchmod(fd, original.st_mode & 07777) == 0 && ::fsync(fd) == 0;
}

}  // namespace

NodeConfigWriter::NodeConfigWriter(std::string name)
    : fileName(std::move(name)), copyName(fileName + ".tmp") {}

void NodeConfigWriter::add(const CNode& node) {
    {
        const Posix::File file = open();
        if (!file) {
            complain("Fail to open: ", fileName);
            return;
        }
        std::string piece;
        while (nextPiece(file.get(), piece)) {
            if (ConfigLineReader::isSkipped(piece) || piece == "\n" ||
                !contains(piece, node.getIp())) {
                continue;
            }
            if (!contains(piece, node.getMac())) {
                correct(node);
            }
            return;
        }
        if (std::ferror(file.get()) != 0) {
            complain("Fail to read: ", fileName);
            return;
        }
    }
    if (replace([&](FILE* from, FILE* to) { return copyWithNode(from, to, node); })) {
        std::cout << "Add a new node:" << node.getIp() << " in " << fileName << "\n" << std::flush;
    }
}

void NodeConfigWriter::correct(const CNode& node) {
    static_cast<void>(replace([&](FILE* from, FILE* to) { return copyCorrected(from, to, node); }));
}

Posix::File NodeConfigWriter::open() const {
    return Posix::openFile(fileName, "re");
}

bool NodeConfigWriter::replace(const Rewrite& rewrite) const {
    const Posix::File from = open();
    if (!from) {
        complain("Fail to open: ", fileName);
        return false;
    }
    if (!fillCopy(from.get(), rewrite)) {
        return false;
    }
    if (std::rename(copyName.c_str(), fileName.c_str()) != 0) {
        complain("Fail to rename: ", copyName);
        static_cast<void>(::unlink(copyName.c_str()));
        return false;
    }
    return true;
}

bool NodeConfigWriter::fillCopy(FILE* from, const Rewrite& rewrite) const {
    struct stat status {};
    if (::fstat(::fileno(from), &status) != 0) {
        complain("Fail to open: ", fileName);
        return false;
    }
    // Never writes through a leftover copy or through a link in its place.
    if (::unlink(copyName.c_str()) != 0 && errno != ENOENT) {
        complain("Fail to open: ", copyName);
        return false;
    }
    UniqueFd fd = Posix::open(copyName, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    Posix::File to(fd ? ::fdopen(fd.get(), "w") : nullptr);
    if (!to) {
        complain("Fail to open: ", copyName);
        return false;
    }
    static_cast<void>(fd.release());  // the stream closes it
    bool good = rewrite(from, to.get()) && std::ferror(from) == 0 && std::fflush(to.get()) == 0 &&
                takeOver(status, ::fileno(to.get()));
    good = std::fclose(to.release()) == 0 && good;
    if (!good) {
        complain("Fail to write: ", copyName);
        static_cast<void>(::unlink(copyName.c_str()));
    }
    return good;
}

void NodeConfigWriter::complain(const char* what, const std::string& file) const {
    std::cout << what << file << "\n" << std::flush;
}
