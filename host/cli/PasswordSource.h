#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <variant>

namespace host::cli {

/// There is no password, and why.
struct NoPassword {
    QString reason;
};

/// The user gave up meanwhile.
struct Interrupted {};

using Password = std::variant<QString, NoPassword, Interrupted>;

/// The first line of `file`, or of standard input for "-"; UTF-8, not empty. `interruption` is a file
/// descriptor that becomes readable when the user gives up.
Password passwordFromFile(const QByteArray& file, int interruption);

/// Asks for the password of `account` on the terminal, which shows nothing of it and is put back as it was in
/// any case.
Password passwordFromTerminal(const QString& account, int interruption);

} // namespace host::cli
