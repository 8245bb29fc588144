#pragma once

#include <QtCore/QByteArray>

#include <array>

namespace host::cli {

/// How a run of the command ended.
enum class Outcome { Finished, Failed, Unconfirmed, Usage, LoginFailed, Refused, Cancelled, Partial };

struct OutcomeName {
    const char* name; ///< In the last JSON line.
    int exitStatus;
};

inline constexpr OutcomeName describe(Outcome outcome) {
    constexpr std::array<OutcomeName, 8> kNames{{{"finished", 0},
                                                 {"failed", 1},
                                                 {"unconfirmed", 1},
                                                 {"usage", 2},
                                                 {"login-failed", 3},
                                                 {"refused", 4},
                                                 {"cancelled", 5},
                                                 {"partial", 6}}};
    return kNames[static_cast<std::size_t>(outcome)];
}

/// The last of the JSON lines, with its line end.
inline QByteArray endLine(Outcome outcome) {
    const auto [name, exitStatus] = describe(outcome);
    return QByteArrayLiteral(R"({"event":"end","outcome":")") + name + R"(","status":)" +
           QByteArray::number(exitStatus) + "}\n";
}

} // namespace host::cli
