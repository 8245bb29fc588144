#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

#include <chrono>
#include <vector>

/// A run of the command as a script starts it: without a terminal, its output in pipes.
class CommandRun {
public:
    /// Starts it. `input` is all of its standard input.
    explicit CommandRun(const QStringList& arguments, const QByteArray& input = {});

    void sendSignal(int number);
    /// The exit status; -1 where it was killed or does not end.
    int wait();

    QByteArray output() const { return output_; }
    QByteArray errors() const { return errors_; }
    std::vector<QByteArray> lines() const;
    /// The JSON lines whose "event" is that, in order.
    std::vector<QJsonObject> events(const QString& event) const;

private:
    QProcess process_;
    QByteArray output_;
    QByteArray errors_;
};

/// A run of the command on a terminal of its own.
class TerminalRun {
public:
    TerminalRun(const QStringList& arguments, int width);
    ~TerminalRun();
    TerminalRun(const TerminalRun&) = delete;
    TerminalRun& operator=(const TerminalRun&) = delete;

    /// Reads until the terminal has shown `text`; false where it does not.
    bool waitFor(const QByteArray& text);
    void type(const QByteArray& keys);
    bool echoes() const;
    /// Reads what is left; the exit status, -1 where it was killed.
    int wait();
    QByteArray shown() const { return shown_; }

private:
    bool readMore(std::chrono::milliseconds patience);
    int terminal_ = -1;
    int process_ = -1;
    QByteArray shown_;
};
