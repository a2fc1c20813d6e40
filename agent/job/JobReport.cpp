#include "JobReport.h"

std::string JobReport::encode() const {
    std::string message(1, static_cast<char>(kind));
    if (kind == Kind::kNotStarted) {
        message += static_cast<char>(errorCode);
        message += text.substr(0, kMaxTextBytes);
    } else if (kind != Kind::kStarted) {
        message += protocol::encode(result).substr(protocol::kHeaderBytes);
    }
    return message;
}

JobReport JobReport::decode(const std::string& message) {
    JobReport report;
    report.kind = static_cast<Kind>(message.at(0));
    const std::string body = message.substr(1);
    if (report.kind == Kind::kNotStarted) {
        report.errorCode = static_cast<unsigned char>(body.at(0));
        report.text = body.substr(1);
    } else if (report.kind != Kind::kStarted) {
        protocol::decode(body, report.result);
    }
    return report;
}
