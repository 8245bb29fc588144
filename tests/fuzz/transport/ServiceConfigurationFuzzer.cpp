#include "platform/ServiceConfiguration.h"
#include "tests/fuzz/FuzzData.h"

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <algorithm>

using platform::ServiceConfiguration;

namespace {

constexpr int kNames = 64;

bool isHostName(const QString& text) {
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar character) {
        return character < u'\x80' &&
               (character.isLetterOrNumber() || character == u'-' || character == u'.');
    });
}

bool hasControlCharacter(const QString& text) {
    return std::any_of(text.begin(), text.end(),
                       [](QChar character) { return character.category() == QChar::Other_Control; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const QTemporaryDir folder;
    // QSettings remembers what was in the last 30 files; the system, every value that a variable ever had.
    static int count = 0;
    QFile file(folder.filePath(QString::number(++count % kNames) + QStringLiteral(".ini")));
    require(file.open(QIODevice::WriteOnly));
    file.write(answerOf(data, size));
    file.close();
    qputenv("QUILLMARK_SERVICE_CONFIG", QFile::encodeName(file.fileName()));
    QString error;
    const auto configuration = ServiceConfiguration::load(folder.path(), &error);
    file.remove();
    if (!configuration) {
        require(error.startsWith(file.fileName()));
        return 0;
    }
    require(error.isEmpty());
    require(isHostName(configuration->webHost) && isHostName(configuration->ftpHost));
    require(!hasControlCharacter(configuration->transport.connectTo));
    require(configuration->transport.idleTimeout >= std::chrono::seconds{1} &&
            configuration->transport.idleTimeout <= std::chrono::hours{1});
    return 0;
}
