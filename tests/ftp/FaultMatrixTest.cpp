#include "tests/ftp/FTPStage.h"

#include <QtCore/QFile>

#include <functional>
#include <string>

using namespace test_support;

namespace ftp_tests {

namespace {

constexpr std::chrono::milliseconds kDelay{120};
constexpr int kShortIdleTimeout = 1;
/// Every failure ends well before a minute of silence would.
constexpr std::chrono::seconds kTimeToTheEnd{10};

/// What servers refuse with.
constexpr int kRefusals[] = {421, 426, 450, 451, 452, 530, 550, 552, 553};

/// What a fault comes to.
struct Expected {
    enum Kind { GoesOn, Refused, Lost } kind = GoesOn;
    int code = 0; ///< Where the server refused.
};

/// One fault at one step.
struct Cell {
    std::string name;
    QByteArray step = {}; ///< Of the conversation, unless the data is at fault.
    FTPFault fault = {};
    std::optional<FTPDataFault> dataFault = {};
    int occurrence = 1;
    int idleTimeout = 60;
    Expected expected = {};
    bool isEncrypted = false;
};

std::string nameOfStep(const QByteArray& step) {
    if (step == kFTPGreeting)
        return "Greeting";
    return step == kFTPClosingReply ? "ClosingReply" : step.toStdString();
}

/// The faults that every step may have. `outcomeOfRefusal` tells what a refusal there comes to.
std::vector<Cell> cellsOfStep(const QByteArray& step, const std::function<Expected(int)>& outcomeOfRefusal) {
    const Expected lost{Expected::Lost};
    std::vector<Cell> cells = {
        {.name = "Delayed", .step = step, .fault = {.delay = kDelay}},
        {.name = "InPieces", .step = step, .fault = {.inPieces = true}},
        {.name = "InManyLines", .step = step, .fault = {.inManyLines = true}},
        {.name = "ControlClosed", .step = step, .fault = {.cut = Cut::Finish}, .expected = lost},
        {.name = "ControlReset", .step = step, .fault = {.cut = Cut::Reset}, .expected = lost},
        {.name = "Silent",
         .step = step,
         .fault = {.silent = true},
         .idleTimeout = kShortIdleTimeout,
         .expected = lost},
    };
    for (const int code : kRefusals) {
        cells.push_back({.name = "Answered" + std::to_string(code),
                         .step = step,
                         .fault = {.answer = QByteArray::number(code) + "-No,\nreally\n" +
                                             QByteArray::number(code) + " No"},
                         .expected = outcomeOfRefusal(code)});
    }
    for (auto& cell : cells)
        cell.name = nameOfStep(step) + cell.name;
    return cells;
}

void append(std::vector<Cell>& cells, const std::vector<Cell>& more) {
    cells.insert(cells.end(), more.begin(), more.end());
}

/// Nobody needs to know where the login folder is, and the old passive mode does as well as the extended one.
/// But after 421 the server hangs up.
Expected outcomeOfRefusedHelp(int code) {
    return code == 421 ? Expected{Expected::Refused, code} : Expected{};
}

/// The reply that says that the folder is there counts as its making, whatever was asked.
Expected outcomeOfRefusedFolder(int code) {
    return code == 550 ? Expected{} : Expected{Expected::Refused, code};
}

/// The same for the second of its kind. Where a kept connection is lost before anything was answered, a new
/// one does as well.
std::vector<Cell> overTheKeptConnection(std::vector<Cell> cells, const std::string& kind) {
    for (Cell& cell : cells) {
        cell.name += "OfTheSecond" + kind;
        cell.occurrence = 2;
        if (cell.fault.cut != Cut::None && (cell.step == "EPSV" || cell.step == "MKD"))
            cell.expected = {};
    }
    return cells;
}

std::vector<Cell> folderCells() {
    std::vector<Cell> cells;
    for (const char* step : {kFTPGreeting, "USER", "PASS", "MKD"})
        append(cells, cellsOfStep(step, outcomeOfRefusedFolder));
    append(cells, cellsOfStep("PWD", outcomeOfRefusedHelp));
    append(cells, overTheKeptConnection(cellsOfStep("MKD", outcomeOfRefusedFolder), "Folder"));
    return cells;
}

FTPDataFault afterSomeBytes(FTPDataFault::Then then, const QByteArray& answer, Cut cut = Cut::Reset,
                            Cut controlCut = Cut::None) {
    return {.afterBytes = 100'000, .then = then, .cut = cut, .answer = answer, .controlCut = controlCut};
}

std::vector<Cell> dataCells() {
    using Then = FTPDataFault::Then;
    const Expected full{Expected::Refused, 552};
    const Expected lost{Expected::Lost};
    std::vector<Cell> cells = {
        {.name = "DataDiskFull",
         .dataFault = afterSomeBytes(Then::DiscardThenAnswer, "552 Disk full"),
         .expected = full},
        {.name = "DataClosedThenAnswered552",
         .dataFault = afterSomeBytes(Then::CutData, "552 Disk full", Cut::Finish),
         .expected = full},
        {.name = "DataConfirmedTooEarly",
         .dataFault = afterSomeBytes(Then::CutData, "226 Got it", Cut::Finish),
         .expected = lost},
        {.name = "DataAndControlClosed",
         .dataFault = afterSomeBytes(Then::CutData, {}, Cut::Finish, Cut::Finish),
         .expected = lost},
        {.name = "DataAndControlReset",
         .dataFault = afterSomeBytes(Then::CutData, {}, Cut::Reset, Cut::Reset),
         .expected = lost},
        {.name = "DataResetWithoutAWord",
         .dataFault = afterSomeBytes(Then::CutData, {}),
         .idleTimeout = kShortIdleTimeout,
         .expected = lost},
        {.name = "DataClosedWithoutAWord",
         .dataFault = afterSomeBytes(Then::CutData, {}, Cut::Finish),
         .idleTimeout = kShortIdleTimeout,
         .expected = lost},
        {.name = "DataStalled",
         .dataFault = afterSomeBytes(Then::AnswerThenStall, {}),
         .idleTimeout = kShortIdleTimeout,
         .expected = lost},
    };
    for (const int code : kRefusals) {
        const Expected refused{Expected::Refused, code};
        const QByteArray answer = QByteArray::number(code) + " No";
        const std::string text = std::to_string(code);
        cells.push_back({.name = "DataResetThenAnswered" + text,
                         .dataFault = afterSomeBytes(Then::CutData, answer),
                         .expected = refused});
        cells.push_back({.name = "DataAnswered" + text + "ThenReset",
                         .dataFault = afterSomeBytes(Then::AnswerThenCutData, answer),
                         .expected = refused});
    }
    return cells;
}

/// The steps of an upload over a connection of its own, and those of a second file over the kept one.
std::vector<Cell> uploadCells() {
    const auto isRefused = [](int code) { return Expected{Expected::Refused, code}; };
    std::vector<Cell> ofEveryFile = cellsOfStep("STOR", isRefused);
    append(ofEveryFile, cellsOfStep(kFTPClosingReply, isRefused));
    append(ofEveryFile, cellsOfStep("EPSV", outcomeOfRefusedHelp));
    append(ofEveryFile, dataCells());

    std::vector<Cell> cells;
    for (const char* step : {kFTPGreeting, "USER", "PASS", "TYPE"})
        append(cells, cellsOfStep(step, isRefused));
    append(cells, cellsOfStep("PWD", outcomeOfRefusedHelp));
    append(cells, ofEveryFile);
    append(cells, overTheKeptConnection(ofEveryFile, "File"));
    return cells;
}

std::vector<Cell> encrypted(std::vector<Cell> cells) {
    for (Cell& cell : cells)
        cell.isEncrypted = true;
    return cells;
}

/// What TLS adds to the folder stage.
std::vector<Cell> encryptedFolderCells() {
    // AUTH has a second form, and PBSZ settles nothing. Without PROT the data would be in clear.
    std::vector<Cell> cells = cellsOfStep("AUTH", outcomeOfRefusedHelp);
    append(cells, cellsOfStep("PBSZ", outcomeOfRefusedHelp));
    append(cells, cellsOfStep("PROT", outcomeOfRefusedFolder));
    return encrypted(std::move(cells));
}

/// What is different in the upload stage: over TLS the control connection is libcurl's alone to read.
std::vector<Cell> encryptedUploadCells() {
    const auto isRefused = [](int code) { return Expected{Expected::Refused, code}; };
    std::vector<Cell> cells = cellsOfStep("PROT", isRefused);
    std::vector<Cell> ofEveryFile = cellsOfStep("STOR", isRefused);
    append(ofEveryFile, cellsOfStep(kFTPClosingReply, isRefused));
    append(cells, ofEveryFile);
    append(cells, overTheKeptConnection(ofEveryFile, "File"));
    return encrypted(std::move(cells));
}

class FaultMatrix : public FTPStage, public testing::WithParamInterface<Cell> {
protected:
    void SetUp() override {
        if (GetParam().isEncrypted)
            useEncryptedServer(GetParam().idleTimeout);
        else
            useServer(*server, GetParam().idleTimeout);
        for (const char* name : {"a.jpg", "b.jpg", "c.jpg"})
            paths.append(addImage(QString::fromLatin1(name), QByteArray(kFileSize, name[0])));
    }

    void makeFault() {
        if (GetParam().dataFault)
            server->onData(*GetParam().dataFault, GetParam().occurrence);
        else
            server->on(GetParam().step, GetParam().fault, GetParam().occurrence);
    }

    QString informativeText() const {
        return GetParam().expected.kind == Expected::Refused ? serverError(GetParam().expected.code)
                                                             : kCommunicationError;
    }
    bool goesOn() const { return GetParam().expected.kind == Expected::GoesOn; }

    void expectEndAfter(const QString& call) {
        EXPECT_TRUE(waitUntil([&] { return host.count(call) > 0; }, kTimeToTheEnd))
            << qPrintable(host.calls().join(QLatin1Char('\n')));
    }

    /// The first files are gone and confirmed, byte for byte; the others are there, in the queue and on the
    /// disk.
    void expectUploaded(int count) {
        EXPECT_EQ(plugIn->numUploaded, count);
        EXPECT_EQ(*plugIn->exportedImagePaths, paths.mid(count));
        EXPECT_EQ(plugIn->exportFTPFolders->size(), paths.size() - count);
        for (int i = 0; i < paths.size(); ++i)
            EXPECT_EQ(QFile::exists(paths[i]), i >= count) << qPrintable(paths[i]);
        for (int i = 0; i < count; ++i) {
            const char letter = static_cast<char>('a' + i);
            EXPECT_EQ(uploaded(QByteArray(1, letter) + ".jpg"), QByteArray(kFileSize, letter));
        }
    }

    static constexpr int kFileSize = 400'000;
    QStringList paths;
};

void PrintTo(const Cell& cell, std::ostream* stream) {
    *stream << cell.name;
}

class FolderFaults : public FaultMatrix {};

TEST_P(FolderFaults, EndAsTheyShould) {
    makeFault();
    server->on("STOR", {.silent = true}); // What comes after the folders is not looked at here.
    finishHandOver();
    if (goesOn()) {
        expectEndAfter(kChainEnded);
        expectNoAlert();
        EXPECT_EQ(host.calls(), QStringList(kChainEnded));
        EXPECT_TRUE(plugIn->ftpPaths->empty());
    } else {
        expectEndAfter(kChainBroken);
        expectAlerts({{kCouldNotConnect, informativeText()}});
        EXPECT_EQ(host.calls(), QStringList({QStringLiteral("alert ") + kCouldNotConnect, kChainBroken}));
        // Counted from 1, as the progress is.
        const auto folderAtFault = static_cast<std::size_t>(GetParam().occurrence);
        EXPECT_EQ(plugIn->ftpPaths->size(), 3 - folderAtFault);
        EXPECT_LE(server->count("MKD"), GetParam().occurrence) << "nothing is tried again";
        EXPECT_EQ(progress().currentValue, folderAtFault);
    }
    expectUploaded(0);
}

class UploadFaults : public FaultMatrix {};

TEST_P(UploadFaults, EndAsTheyShould) {
    const int fileAtFault = GetParam().occurrence;
    makeFault();
    server->on("STOR", {.silent = true}, 3); // The last file keeps the queue from ending.
    startUploads();
    const int uploads = goesOn() ? 2 : fileAtFault - 1;
    QStringList calls{kChainEnded};
    for (int i = 0; i < uploads; ++i)
        calls.append(QStringLiteral("imageUploaded %1.jpg").arg(QChar(u'a' + i)));
    if (goesOn()) {
        expectEndAfter(QStringLiteral("imageUploaded b.jpg"));
        expectNoAlert();
    } else {
        expectEndAfter(kUploadBroken);
        const QString message = uploadingError(QStringLiteral("%1.jpg").arg(QChar(u'a' + uploads)));
        expectAlerts({{message, informativeText()}});
        calls += {QStringLiteral("alert ") + message, kCancelled, kUploadBroken};
        EXPECT_LE(server->count("STOR"), uploads + 1) << "nothing is tried again";
    }
    EXPECT_EQ(host.calls(), calls);
    expectUploaded(uploads);
}

const auto nameOfCell = [](const auto& tested) { return tested.param.name; };
INSTANTIATE_TEST_SUITE_P(At, FolderFaults, testing::ValuesIn(folderCells()), nameOfCell);
INSTANTIATE_TEST_SUITE_P(At, UploadFaults, testing::ValuesIn(uploadCells()), nameOfCell);
INSTANTIATE_TEST_SUITE_P(OverTLSAt, FolderFaults, testing::ValuesIn(encryptedFolderCells()), nameOfCell);
INSTANTIATE_TEST_SUITE_P(OverTLSAt, UploadFaults, testing::ValuesIn(encryptedUploadCells()), nameOfCell);

} // namespace

} // namespace ftp_tests
