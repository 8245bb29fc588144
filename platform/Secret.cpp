#include "platform/Secret.h"

#include <cstring>

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

namespace platform {

namespace {

/// More than any encoding needs: a byte of some stands for a letter and its marks.
constexpr qsizetype kUnitsPerByte = 4;

/// Zeros the whole allocation, so that no cut-off end stays behind. Literals and raw data belong to somebody
/// else and may be read-only.
template <typename Text>
void wipeBuffer(Text& text) {
    auto& data = text.data_ptr();
    if (data.isMutable()) {
        auto* const start = data.data() - data.freeSpaceAtBegin();
        const auto count = static_cast<std::size_t>(data.constAllocatedCapacity());
        // A plain memset of memory that is never read again is dropped by optimisers.
        explicit_bzero(start, count * sizeof(*start));
    }
    text.clear();
}

template <typename Text>
void wipeBufferUnlessShared(Text& text) {
    if (text.isDetached())
        wipeBuffer(text);
    text.clear();
}

template <typename Text, typename View>
void appendView(Text& text, View more) {
    const qsizetype size = text.size() + more.size();
    if (size > text.capacity()) {
        Text larger;
        larger.reserve(2 * size);
        larger.append(View(text));
        text.swap(larger);
        wipeBufferUnlessShared(larger);
    }
    text.append(more);
}

/// The encoding of the locale that the user's environment names. Not the one that is set: a host may have set
/// none, and later versions of Qt put LC_CTYPE into UTF-8 whatever the user's is.
QByteArray defaultEncoding() {
    const locale_t users = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!users)
        return nl_langinfo(CODESET);
    QByteArray encoding(nl_langinfo_l(CODESET, users));
    freelocale(users);
    return encoding;
}

class Converter {
public:
    explicit Converter(const QByteArray& encoding)
        : descriptor_(
              iconv_open(Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? "UTF-16LE" : "UTF-16BE", encoding.constData())) {}
    ~Converter() {
        if (isValid())
            iconv_close(descriptor_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool isValid() const { return descriptor_ != iconv_t(-1); }

    /// Fills `text`, whose size is the room there is, and cuts it to what was needed. False where not all
    /// bytes could be read.
    bool convert(const QByteArray& bytes, QString& text) {
        auto* in = const_cast<char*>(bytes.constData()); // iconv doesn't write there
        auto inLeft = static_cast<std::size_t>(bytes.size());
        auto* out = reinterpret_cast<char*>(text.data());
        auto outLeft = static_cast<std::size_t>(text.size()) * sizeof(QChar);
        if (iconv(descriptor_, &in, &inLeft, &out, &outLeft) == std::size_t(-1) ||
            iconv(descriptor_, nullptr, nullptr, &out, &outLeft) == std::size_t(-1))
            return false;
        text.truncate(text.size() - static_cast<qsizetype>(outLeft / sizeof(QChar)));
        return true;
    }

private:
    const iconv_t descriptor_;
};

} // namespace

void wipe(QString& text) {
    wipeBuffer(text);
}
void wipe(QByteArray& bytes) {
    wipeBuffer(bytes);
}

void wipeUnlessShared(QString& text) {
    wipeBufferUnlessShared(text);
}
void wipeUnlessShared(QByteArray& bytes) {
    wipeBufferUnlessShared(bytes);
}

void appendSecret(QString& text, QStringView more) {
    appendView(text, more);
}
void appendSecret(QByteArray& bytes, QByteArrayView more) {
    appendView(bytes, more);
}

QString textFromDefaultCString(const QByteArray& bytes) {
    const auto cString = QByteArray::fromRawData(
        bytes.constData(), static_cast<qsizetype>(qstrnlen(bytes.constData(), bytes.size())));
    Converter converter(defaultEncoding());
    if (converter.isValid()) {
        QString text((cString.size() + 1) * kUnitsPerByte, Qt::Uninitialized);
        if (converter.convert(cString, text))
            return text;
        wipe(text);
    }
    return QString::fromLatin1(cString);
}

} // namespace platform
