#include "host/core/JournalFormat.h"
#include "tests/fuzz/FuzzData.h"

#include <algorithm>

using namespace host;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray contents = answerOf(data, size);
    qint64 length = -1;
    QString error;
    const auto record = journal_format::read(contents, length, error);
    if (!record) {
        require(!error.isEmpty());
        return 0;
    }
    require(length >= 0 && length <= contents.size());
    const auto firstLine = journal_format::readFirstLine(contents);
    require(firstLine && firstLine->begun == record->begun && sameEvent(*firstLine, *record));
    const std::size_t count = record->images.size();
    require(std::all_of(record->attempt.begin(), record->attempt.end(),
                        [count](std::size_t index) { return index < count; }));
    const auto requireFile = [](const auto& file) {
        require(!file.name.isEmpty() && !file.name.contains(QLatin1Char('/')));
        require(file.source.startsWith('/') && !file.source.contains('\0'));
    };
    std::for_each(record->images.begin(), record->images.end(), requireFile);
    std::for_each(record->sentBefore.begin(), record->sentBefore.end(), requireFile);
    // Cut to its whole lines, it says the same.
    const auto again = journal_format::read(contents.left(length), length, error);
    require(again && again->remaining() == record->remaining() && again->isSettled() == record->isSettled());
    return 0;
}
