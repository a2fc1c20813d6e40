#include "TlsContextCache.h"

#include <sys/stat.h>
#include <utility>

#include "CertificateExpiry.h"

TlsContextCache::Stamp TlsContextCache::stampOf(const std::string& file) {
    struct stat found {};
    if (file.empty() || ::stat(file.c_str(), &found) != 0) {
        return Stamp{};
    }
    return {static_cast<long long>(found.st_dev),
            static_cast<long long>(found.st_ino),
            static_cast<long long>(found.st_size),
            found.st_mtim.tv_sec,
            found.st_mtim.tv_nsec,
            found.st_ctim.tv_sec * 1000000000LL + found.st_ctim.tv_nsec};
}

std::shared_ptr<TlsContext> TlsContextCache::get(const TlsFiles& files) {
    const std::lock_guard<std::mutex> lock(mutex);
    // Taken before the files are read: a file replaced meanwhile shows at the next call.
    std::vector<Stamp> stamps = {
        stampOf(files.certificateFile), stampOf(files.privateKeyFile), stampOf(files.caFile),
        stampOf(certificateexpiry::revocationListBeside(files.certificateFile))};
    Entry& entry = entries[{files.certificateFile, files.privateKeyFile, files.caFile}];
    if (!entry.context || entry.stamps != stamps) {
        entry.context.reset();
        entry.context = TlsContext::client(files);
        entry.stamps = std::move(stamps);
    }
    return entry.context;
}
