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
        {.name = "ControlClosed", .step = step, .fault = {.cut = Cut::Finish}, .expected = lost},
        {.name = "ControlReset", .step = step, .fault = {.cut = Cut::Reset}, .expected = lost},
        {.name = "Silent",
         .step = step,
         .fault = {.silent = true},
         .idleTimeout = kShortIdleTimeout,
         .expected = lost},
    };
    for (const int code : {421, 426, 450, 451, 452, 530, 550, 552, 553}) {
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

std::vector<Cell> folderCells() {
    std::vector<Cell> cells;
    for (const char* step : {kFTPGreeting, "USER", "PASS", "MKD"}) {
        append(cells, cellsOfStep(step, [](int code) {
                   return code == 550 ? Expected{} : Expected{Expected::Refused, code};
               }));
    }
    append(cells, cellsOfStep("PWD", outcomeOfRefusedHelp));
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
    return {
        {.name = "DataDiskFull",
         .dataFault = afterSomeBytes(Then::DiscardThenAnswer, "552 Disk full"),
         .expected = full},
        {.name = "DataResetThenAnswered552",
         .dataFault = afterSomeBytes(Then::CutData, "552 Disk full"),
         .expected = full},
        {.name = "DataClosedThenAnswered552",
         .dataFault = afterSomeBytes(Then::CutData, "552 Disk full", Cut::Finish),
         .expected = full},
        {.name = "DataAnswered552ThenReset",
         .dataFault = afterSomeBytes(Then::AnswerThenCutData, "552 Disk full"),
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
        {.name = "DataStalled",
         .dataFault = afterSomeBytes(Then::AnswerThenStall, {}),
         .idleTimeout = kShortIdleTimeout,
         .expected = lost},
    };
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
    for (Cell cell : ofEveryFile) {
        cell.name += "OfTheSecondFile";
        cell.occurrence = 2;
        // Where a kept connection is lost before anything was answered, a new one does as well.
        if (cell.step == "EPSV" && cell.fault.cut != Cut::None)
            cell.expected = {};
        cells.push_back(cell);
    }
    return cells;
}

class FaultMatrix : public FTPStage, public testing::WithParamInterface<Cell> {
protected:
    void SetUp() override {
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
        EXPECT_EQ(plugIn->ftpPaths->size(), 2U);
        EXPECT_LE(server->count("MKD"), 1);
        EXPECT_EQ(progress().currentValue, 1U);
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

} // namespace

} // namespace ftp_tests
