#include "JsonLines.h"

#include <nlohmann/json.hpp>
#include <openssl/evp.h>

namespace {

// In the order given, as people read it.
using Json = nlohmann::ordered_json;

std::string base64(const std::string& bytes) {
    // Four characters for three bytes, and a NUL.
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

}  // namespace

std::string jsonLine(unsigned int commandNumber, const NodeOutcome& outcome) {
    Json line;
    line["command"] = commandNumber;
    line["node"] = outcome.node;
    line["address"] = outcome.address;
    line["cause"] = causeName(outcome.cause);
    line["status"] = outcome.status;
    line["exit_code"] = outcome.exitCode ? Json(*outcome.exitCode) : Json(nullptr);
    line["ms"] = outcome.ms;
    Json whole = line;
    whole["output"] = outcome.text;
    try {
        return whole.dump() + "\n";
    } catch (const Json::type_error&) {
        // Some byte is not UTF-8. Names of nodes can hold such bytes too: those are replaced, as a
        // node whose name nobody can type is found by its address.
        line["output_base64"] = base64(outcome.text);
        return line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    }
}
