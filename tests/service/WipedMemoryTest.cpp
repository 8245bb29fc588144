// No password is left behind in memory that the service client gives back.

#include "platform/Secret.h"
#include "service/LoginParser.h"
#include "service/ServiceRequests.h"
#include "tests/support/FreedMemory.h"

#include <QtCore/QXmlStreamReader>

#include <gtest/gtest.h>

using test_support::FreedMemory;

namespace {

// Long enough to be found nowhere else.
constexpr char kSecret[] = "correct horse battery staple";

} // namespace

TEST(FreedMemory, SeesWhatIsNotWiped) {
    const FreedMemory freed(kSecret);
    {
        const QString text = QString::fromLatin1(kSecret);
        const QByteArray bytes(kSecret);
    }
    EXPECT_EQ(freed.findings(), 2);
}

TEST(WipedMemory, PasswordsLeaveNothingWhereTheyLeaveARecord) {
    const QString literal = QStringLiteral("correct horse battery staple");
    const FreedMemory freed(kSecret);
    for (const QString& key : {kPasswordKey, kEncPasswordKey}) {
        Record record;
        record.setText(key, literal);
        record.removeText(key);
        record.setText(key, literal);
        record.setText(key, QStringLiteral("another"));
    }
    EXPECT_EQ(freed.findings(), 0);
}

TEST(WipedMemory, PasswordsLeaveNothingAtTheEndOfARecord) {
    const QString literal = QStringLiteral("correct horse battery staple");
    const FreedMemory freed(kSecret);
    {
        Record record;
        record.setText(kPasswordKey, literal);
        record.setText(kEncPasswordKey, literal);
        const Record copy(record);
    }
    EXPECT_EQ(freed.findings(), 0);
}

TEST(WipedMemory, SharedTextsAreWipedWithTheirLastOwner) {
    QByteArray bytes(kSecret);
    const FreedMemory freed(kSecret);
    {
        QByteArray other = bytes;
        platform::wipeUnlessShared(other);
        EXPECT_TRUE(other.isEmpty());
        EXPECT_EQ(bytes, kSecret);
    }
    platform::wipeUnlessShared(bytes);
    EXPECT_TRUE(bytes.isEmpty());
    EXPECT_EQ(freed.findings(), 0);
}

TEST(WipedMemory, TextsThatGrowLeaveNoShorterOnes) {
    const FreedMemory freed(kSecret);
    {
        QString text;
        QByteArray bytes;
        for (int i = 0; i < 100; ++i) {
            platform::appendSecret(text, u"correct horse battery staple");
            platform::appendSecret(bytes, kSecret);
        }
        EXPECT_EQ(text.size(), bytes.size());
        platform::wipe(text);
        platform::wipe(bytes);
    }
    EXPECT_EQ(freed.findings(), 0);
}

TEST(WipedMemory, LoginAnswersLeaveNoMoreThanTheReaderOfTheLibrary) {
    const QByteArray whole = "<Login><Password>correct horse battery staple</Password></Login>";
    const QByteArray inPieces =
        "<Login><Password>correct horse battery staple<!-- -->more and more &amp; more</Password></Login>";
    const QByteArray cutOff = "<Login><Password>correct horse battery staple<x>";
    const QByteArray replaced =
        "<Login><Password>correct horse battery staple<UserId>1</UserId></Password></Login>";
    const QByteArray declared = "<?xml version='1.0' encoding='windows-1252'?>" + whole;
    const QByteArray longer = whole + QByteArray(4000, ' ');
    for (const QByteArray& answer : {whole, inPieces, cutOff, replaced, declared, longer}) {
        const FreedMemory freed(kSecret);
        const QString document = QString::fromLatin1(answer);
        {
            QXmlStreamReader reader(document);
            while (!reader.atEnd())
                reader.readNext();
        }
        const int ofTheLibrary = freed.findings();
        {
            LoginParser parser;
            parser.parseData(answer);
        }
        EXPECT_EQ(freed.findings(), 2 * ofTheLibrary) << answer.constData();
    }
}

TEST(WipedMemory, RequestTextsLeaveNothing) {
    platform::URLLoader loader{platform::Transport()};
    const FreedMemory freed(kSecret);
    // Its spaces make it no URL: nothing goes to the library.
    EXPECT_FALSE(acceptedAnswer(
        loader, service_requests::login(QStringLiteral("www.quillmark.example"), QStringLiteral("ann"),
                                        QStringLiteral("correct horse battery staple"))));
    EXPECT_EQ(freed.findings(), 0);
}
