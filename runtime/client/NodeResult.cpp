#include "NodeResult.h"

#include <algorithm>
#include <new>
#include <utility>

#include "AgentLink.h"
#include "ChannelError.h"

namespace noderesult {
namespace {

constexpr std::size_t kGrowth = 8;

RunEnd endBy(const ChannelError& error) {
    switch (error.kind()) {
        case ChannelError::Kind::kUnreachable:
        case ChannelError::Kind::kNoAnswer:
            return RunEnd::kUnreachable;
        case ChannelError::Kind::kTimedOut:
            return RunEnd::kSilent;
        case ChannelError::Kind::kRefused:
            return RunEnd::kRefused;
        case ChannelError::Kind::kClosed:
        case ChannelError::Kind::kCancelled:
        case ChannelError::Kind::kFailed:
            break;
    }
    return RunEnd::kByStatus;
}

RunEnd endBy(const AgentError& error) {
    switch (error.code()) {
        case protocol::kErrorRefused:
            return RunEnd::kRefused;
        case protocol::kErrorNotStarted:
            return RunEnd::kNotStarted;
        default:
            return RunEnd::kByStatus;
    }
}

}  // namespace

void appendLine(std::string& text, const std::string& line) {
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    text += line;
}

void fill(CResult& result, int status, int exitCode, std::string summary) {
    result.setRunStatus(status);
    result.setExitCode(exitCode);
    result.setRunSummary(std::move(summary));
}

void fail(CResult& result, const CException& failure) {
    result.setRunStatus(EXEC_FAILURE);
    result.setRunSummary(failure.getErrMsg());
    if (const auto* channel = dynamic_cast<const ChannelError*>(&failure)) {
        result.setRunEnd(endBy(*channel));
    } else if (const auto* agent = dynamic_cast<const AgentError*>(&failure)) {
        result.setRunEnd(endBy(*agent));
    }
}

void fill(CResult& result, const protocol::Result& verdict, std::string summary) {
    if (!verdict.text.empty()) {
        appendLine(summary, verdict.text);
    }
    switch (verdict.ending) {
        case protocol::Result::Ending::kExited:
            fill(result, verdict.value == 0 ? EXEC_SUCCESS : EXEC_FAILURE, verdict.value,
                 std::move(summary));
            break;
        case protocol::Result::Ending::kSignaled:
            fill(result, EXEC_FAILURE, 128 + verdict.value, std::move(summary));
            break;
        case protocol::Result::Ending::kTimedOut:
            fill(result, EXEC_TIMED_OUT, 0, std::move(summary));
            break;
        case protocol::Result::Ending::kCancelled:
            appendLine(summary, "The job was cancelled at the node.");
            fill(result, EXEC_FAILURE, 0, std::move(summary));
            break;
    }
}

bool isOrderly(const protocol::Result& verdict) {
    return verdict.ending == protocol::Result::Ending::kExited ||
           verdict.ending == protocol::Result::Ending::kSignaled;
}

void OutputCollector::add(const std::string& bytes) {
    const std::size_t kept = std::min(bytes.size(), most - text.size());
    if (kept > text.capacity() - text.size()) {
        makeRoom(text.size() + kept);
    }
    text.append(bytes, 0, kept);
    dropped += bytes.size() - kept;
}

void OutputCollector::makeRoom(std::size_t needed) {
    try {
        // Room that nothing is written to costs no memory, and moving into larger room does.
        text.reserve(std::max(needed, std::min(most, kGrowth * text.capacity())));
    } catch (const std::bad_alloc&) {
        // Not where the address space is limited. As much as is needed may still be had.
        text.reserve(needed);
    }
}

std::string OutputCollector::finish() {
    if (dropped > 0) {
        appendLine(text, "[" + std::to_string(dropped) + " more bytes of output were left out]\n");
    }
    return std::move(text);
}

}  // namespace noderesult
