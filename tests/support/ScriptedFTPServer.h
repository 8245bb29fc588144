#pragma once

#include "tests/support/ServerSocket.h"
#include "tests/support/TestCertificates.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <thread>

namespace test_support {

/// Steps of the conversation beside the commands, for `ScriptedFTPServer::on`.
inline constexpr char kFTPGreeting[] = "(greeting)";
inline constexpr char kFTPClosingReply[] = "(closing reply)"; ///< What follows a file's last byte: 226.

/// What goes wrong at one step of the conversation, in this order: the delay, the silence, the drop of the
/// data connection, the answer, the cut.
struct FTPFault {
    std::chrono::milliseconds delay{0};
    bool silent = false; ///< Never answers, and keeps the connection open.
    /// Said instead of the usual answer; the command does its work only where this is a positive reply.
    std::optional<QByteArray> answer = {};
    /// Resets the data connection that the passive mode has prepared.
    bool dropsData = false;
    /// Says, together with its own answer, the one to this command, which is taken to come next.
    QByteArray answersAhead = {};
    bool inManyLines = false; ///< Says whatever it says at the end of a reply of many lines.
    bool inPieces = false;    ///< Says whatever it says byte by byte, in segments of their own.
    Cut cut = Cut::None;      ///< Of the control connection: after `answer`, or instead of any.
};

/// What goes wrong while a file's bytes come.
struct FTPDataFault {
    std::uint64_t afterBytes = 0; ///< Bytes of the file that the server takes before.
    enum class Then {
        CutData,           ///< Cuts the data connection, then says `answer`.
        AnswerThenCutData, ///< Says `answer`, waits a moment, then cuts the data connection.
        DiscardThenAnswer, ///< Takes the rest and drops it, then says `answer` instead of 226.
        AnswerThenStall,   ///< Says `answer`, if any, and takes no more bytes until the client gives up.
    } then = Then::CutData;
    Cut cut = Cut::Reset;               ///< How the data connection is cut.
    QByteArray answer = {};             ///< Nothing is said where it is empty.
    std::chrono::milliseconds pause{0}; ///< Between the cut and the answer, or the other way round.
    Cut controlCut = Cut::None;         ///< Of the control connection, last of all.
};

struct FTPServerState;

/// An FTP server within the test, on threads of its own, that records the whole conversation and makes the
/// faults that it is told to make.
///
/// Without a fault it is an honest server: it lets everybody log in, starts in an empty login folder, keeps
/// files in memory, answers 550 to MKD of a folder that exists or whose parent does not, and 553 to STOR
/// into a folder that does not exist, and 426 to a file that is cut off. All functions: any thread. Its
/// destructor cuts all connections.
class ScriptedFTPServer {
public:
    static constexpr int kEveryTime = 0;

    struct Options {
        bool ipv6 = false; ///< Listens on ::1 instead of 127.0.0.1.
        /// Speaks explicit TLS (AUTH TLS, PBSZ, PROT P) with this certificate, and refuses USER, and files'
        /// data, without.
        std::optional<ServerCertificate> certificate = {};
        /// Refuses data connections that don't reuse the control connection's TLS session.
        bool requireSessionReuse = false;
        /// The single account; everybody may come in where the name is empty.
        QByteArray userName = {};
        QByteArray password = {};
    };

    ScriptedFTPServer();
    explicit ScriptedFTPServer(const Options& options);
    ~ScriptedFTPServer();
    ScriptedFTPServer(const ScriptedFTPServer&) = delete;
    ScriptedFTPServer& operator=(const ScriptedFTPServer&) = delete;

    std::uint16_t port() const;
    /// An entry for `Transport::connectTo` that brings `host`, port 21, to this server.
    QString connectTo(const QString& host = QStringLiteral("ftp.quillmark.example")) const;

    /// Makes a fault at the `occurrence`-th (1 is the first, counted over all connections from now on)
    /// `step`: a command's name ("STOR", "AUTH", ...) or one of the constants above. A fault for that very
    /// occurrence goes before one for every time.
    void on(const QByteArray& step, const FTPFault& fault, int occurrence = kEveryTime);
    /// Shorthand for an `answer` alone, such as "550 No such folder"; lines of several are separated by "\n".
    void on(const QByteArray& step, const QByteArray& answer, int occurrence = kEveryTime);
    /// Makes a fault in the `occurrence`-th upload.
    void onData(const FTPDataFault& fault, int occurrence = kEveryTime);
    /// Forgets all faults that have not begun.
    void clearFaults();
    /// Names another address than its own in the answers to PASV, such as "192,0,2,1".
    void setPassiveAddress(const QByteArray& fourNumbers);
    /// Waits so long after each piece of data, to see an upload under way.
    void setDataPace(std::chrono::milliseconds pausePerPiece, std::size_t pieceSize = 16 * 1024);

    /// Lines that came over one control connection (0 is the first), without their ends, in order, with
    /// passwords.
    QList<QByteArray> commands(int connection) const;
    /// Lines of all control connections, in the order in which they came.
    QList<QByteArray> commands() const;
    /// How many of all lines are this command ("STOR").
    int count(const QByteArray& command) const;
    /// Control connections that were ever made, and those that are open now.
    int connectionCount() const;
    int openConnectionCount() const;
    /// The bytes that came over all connections as they were on the wire (the first 8 MiB): what a listener
    /// would read.
    QByteArray wireBytes() const;

    /// Files that came whole and were answered positively, by path from the login folder ("77/A/a.jpg").
    std::map<QByteArray, QByteArray> files() const;
    /// Bytes that came of the file in transfer, or of the last one.
    std::uint64_t receivedBytes() const;
    /// Folders made, by path from the login folder without a "/" at the end, in their order.
    QList<QByteArray> folders() const;
    /// Puts a folder there without a command.
    void addFolder(const QByteArray& path);

private:
    void acceptConnections();

    const std::shared_ptr<FTPServerState> state_;
    std::unique_ptr<ServerSocket> listening_;
    std::uint16_t port_ = 0;
    std::thread acceptor_;
};

} // namespace test_support
