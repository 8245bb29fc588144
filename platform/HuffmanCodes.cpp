#include "platform/HuffmanCodes.h"

#include <QtCore/QtEndian>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace platform {

namespace {

// Markers of ITU T.81, table B.1.
constexpr unsigned char kBaselineFrame = 0xC0;
constexpr unsigned char kHuffmanTables = 0xC4;
constexpr unsigned char kStartOfImage = 0xD8;
constexpr unsigned char kEndOfImage = 0xD9;
constexpr unsigned char kStartOfScan = 0xDA;
constexpr unsigned char kRestartInterval = 0xDD;
constexpr unsigned char kMarker = 0xFF;

constexpr int kLongestCode = 16;
constexpr int kSymbols = 256;
constexpr int kTablesOfAClass = 4;
constexpr int kCoefficients = 64;
constexpr unsigned char kZeroRun = 0xF0; ///< Sixteen zeros.
constexpr int kMostComponents = 4;

/// A table as a file states it: how many codes there are of each length, and the symbols in the codes' order.
struct CodeTable {
    std::array<std::uint8_t, kLongestCode + 1> count{};
    std::vector<std::uint8_t> symbols;
};

/// Which symbol the next bits are the code of.
class Decoder {
public:
    struct Entry {
        std::uint8_t symbol = 0;
        std::uint8_t length = 0; ///< Of the code; 0 where none begins so.
    };

    /// Of the next 16 bits.
    Entry operator()(std::uint32_t bits) const {
        const Entry entry = shortCodes_[bits >> (kLongestCode - kShortCode)];
        return entry.length > 0 ? entry : longCode(bits);
    }

private:
    /// Most codes in a picture are as short; a table for all lengths would not fit into a processor's cache.
    static constexpr int kShortCode = 10;
    struct LongCode {
        std::uint32_t first; ///< The least 16 bits that begin with it.
        Entry entry;
    };

    Entry longCode(std::uint32_t bits) const {
        const auto behind =
            std::upper_bound(longCodes_.begin(), longCodes_.end(), bits,
                             [](std::uint32_t b, const LongCode& code) { return b < code.first; });
        if (behind == longCodes_.begin())
            return {};
        const LongCode& code = *std::prev(behind);
        return bits >> (kLongestCode - code.entry.length) == code.first >> (kLongestCode - code.entry.length)
                   ? code.entry
                   : Entry{};
    }

    friend std::optional<Decoder> decoderOf(const CodeTable& table);
    std::array<Entry, 1 << kShortCode> shortCodes_{};
    std::vector<LongCode> longCodes_; ///< In the codes' order.
};

struct Code {
    std::uint16_t bits = 0;
    std::uint8_t length = 0;
};
using Encoder = std::array<Code, kSymbols>;
using Frequencies = std::array<std::uint64_t, kSymbols>;

/// Calls `visit(symbol, bits, length)` for each code of the table (annex C). False where there are too many.
template <typename Visit>
bool eachCode(const CodeTable& table, Visit&& visit) {
    std::uint32_t code = 0;
    std::size_t next = 0;
    for (int length = 1; length <= kLongestCode; ++length, code <<= 1) {
        for (int i = 0; i < table.count[static_cast<std::size_t>(length)]; ++i, ++code) {
            if (next >= table.symbols.size() || code >> length != 0)
                return false;
            visit(table.symbols[next++], static_cast<std::uint16_t>(code), static_cast<std::uint8_t>(length));
        }
    }
    return true;
}

std::optional<Decoder> decoderOf(const CodeTable& table) {
    Decoder decoder;
    const bool isWhole = eachCode(table, [&](std::uint8_t symbol, std::uint16_t bits, std::uint8_t length) {
        const int rest = Decoder::kShortCode - length;
        if (rest >= 0)
            std::fill_n(decoder.shortCodes_.begin() + (std::ptrdiff_t{bits} << rest), std::size_t{1} << rest,
                        Decoder::Entry{symbol, length});
        else
            decoder.longCodes_.push_back({std::uint32_t{bits} << (kLongestCode - length), {symbol, length}});
    });
    return isWhole ? std::optional(std::move(decoder)) : std::nullopt;
}

Encoder encoderOf(const CodeTable& table) {
    Encoder encoder{};
    eachCode(table, [&](std::uint8_t symbol, std::uint16_t bits, std::uint8_t length) {
        encoder[symbol] = {bits, length};
    });
    return encoder;
}

/// The lengths of the best codes: Huffman's, of which annex K.2 shortens the ones that are too long. A
/// symbol more than there are keeps the code of ones alone free, which may not be used.
CodeTable bestTable(const Frequencies& frequencies) {
    constexpr int kReserved = kSymbols;
    constexpr int kNone = -1;
    constexpr auto kNever = std::numeric_limits<std::uint64_t>::max();
    std::array<std::uint64_t, kSymbols + 1> weight{};
    std::array<int, kSymbols + 1> length{};
    std::array<int, kSymbols + 1> nextOfTree{};
    std::copy(frequencies.begin(), frequencies.end(), weight.begin());
    weight[kReserved] = 1;
    nextOfTree.fill(kNone);

    const auto lightest = [&](int other) {
        int found = kNone;
        std::uint64_t least = kNever;
        for (int i = 0; i <= kReserved; ++i) {
            if (i != other && weight[std::size_t(i)] != 0 && weight[std::size_t(i)] <= least) {
                least = weight[std::size_t(i)];
                found = i;
            }
        }
        return found;
    };
    for (;;) {
        const int one = lightest(kNone);
        const int other = lightest(one);
        if (other == kNone)
            break;
        weight[std::size_t(one)] += weight[std::size_t(other)];
        weight[std::size_t(other)] = 0;
        int last = one;
        for (;; last = nextOfTree[std::size_t(last)]) {
            ++length[std::size_t(last)];
            if (nextOfTree[std::size_t(last)] == kNone)
                break;
        }
        nextOfTree[std::size_t(last)] = other;
        for (int i = other; i != kNone; i = nextOfTree[std::size_t(i)])
            ++length[std::size_t(i)];
    }

    std::array<int, kSymbols + 2> countOfLength{};
    for (const int each : length)
        ++countOfLength[std::size_t(each)];
    for (std::size_t i = kSymbols; i > kLongestCode; --i) {
        while (countOfLength[i] > 0) {
            std::size_t shorter = i - 2;
            while (countOfLength[shorter] == 0)
                --shorter;
            countOfLength[i] -= 2;
            ++countOfLength[i - 1];
            countOfLength[shorter + 1] += 2;
            --countOfLength[shorter];
        }
    }
    std::size_t longest = kLongestCode;
    while (longest > 0 && countOfLength[longest] == 0)
        --longest;
    --countOfLength[longest]; // The reserved one's.

    CodeTable table;
    for (std::size_t i = 1; i <= kLongestCode; ++i)
        table.count[i] = static_cast<std::uint8_t>(countOfLength[i]);
    for (int each = 1; each <= kSymbols; ++each) {
        for (std::size_t symbol = 0; symbol < kSymbols; ++symbol) {
            if (length[symbol] == each)
                table.symbols.push_back(static_cast<std::uint8_t>(symbol));
        }
    }
    return table;
}

/// Whether one of the four bytes is 0xFF, which doesn't stand for itself.
bool holdsMarker(std::uint32_t word) {
    return ((~word - 0x01010101U) & word & 0x80808080U) != 0;
}

/// The bits of entropy-coded data, from its first byte to the marker behind it.
class BitReader {
public:
    explicit BitReader(QByteArrayView data)
        : next_(reinterpret_cast<const unsigned char*>(data.data()))
        , end_(next_ + data.size()) {}

    /// Makes a code and the bits behind it available, ones behind the end.
    void prepare() {
        if (available_ < 2 * kLongestCode)
            fill();
    }
    std::uint32_t peekCode() const {
        return static_cast<std::uint32_t>(bits_ >> (available_ - kLongestCode)) & ((1U << kLongestCode) - 1);
    }
    std::uint32_t take(int count) {
        available_ -= count;
        return static_cast<std::uint32_t>(bits_ >> available_) & ((1U << count) - 1);
    }
    /// Whether more was taken than there is.
    bool isPastEnd() const { return available_ < padding_; }

private:
    void fill() {
        if (end_ - next_ >= 4) {
            const auto word = qFromBigEndian<quint32>(next_);
            if (!holdsMarker(word)) {
                next_ += 4;
                bits_ = bits_ << 32 | word;
                available_ += 32;
                return;
            }
        }
        while (available_ <= 64 - 8) {
            std::uint64_t byte = kMarker;
            if (next_ < end_ && *next_ != kMarker) {
                byte = *next_++;
            } else if (end_ - next_ >= 2 && next_[1] == 0) {
                next_ += 2;
            } else {
                padding_ += 8;
            }
            bits_ = bits_ << 8 | byte;
            available_ += 8;
        }
    }

    const unsigned char* next_;
    const unsigned char* const end_;
    std::uint64_t bits_ = 0;
    int available_ = 0;
    int padding_ = 0;
};

class BitWriter {
public:
    explicit BitWriter(QByteArray& out)
        : out_(out) {}

    void put(std::uint32_t bits, int count) {
        bits_ = bits_ << count | bits;
        held_ += count;
        if (held_ < 32)
            return;
        held_ -= 32;
        if (size_ + 8 > chunk_.size())
            flush();
        const auto word = static_cast<std::uint32_t>(bits_ >> held_);
        if (holdsMarker(word)) {
            for (int shift = 24; shift >= 0; shift -= 8)
                append(static_cast<unsigned char>(word >> shift));
        } else {
            qToBigEndian(word, chunk_.data() + size_);
            size_ += 4;
        }
    }
    /// Fills the last byte with ones.
    void finish() {
        const int rest = held_ % 8 == 0 ? 0 : 8 - held_ % 8;
        put((1U << rest) - 1, rest);
        flush();
        for (; held_ > 0; held_ -= 8)
            append(static_cast<unsigned char>(bits_ >> (held_ - 8)));
        flush();
    }

private:
    void append(unsigned char byte) {
        chunk_[size_++] = static_cast<char>(byte);
        if (byte == kMarker)
            chunk_[size_++] = 0;
    }
    void flush() {
        out_.append(chunk_.data(), static_cast<qsizetype>(size_));
        size_ = 0;
    }

    QByteArray& out_;
    std::array<char, 4096> chunk_;
    std::size_t size_ = 0;
    std::uint64_t bits_ = 0;
    int held_ = 0;
};

struct Component {
    std::uint8_t id = 0;
    int horizontal = 0;
    int vertical = 0;
    std::size_t dcTable = 0;
    std::size_t acTable = 0;
};

template <typename Value>
using PerTable = std::array<Value, kTablesOfAClass>;

/// What stands before the entropy-coded data.
struct Header {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<Component> components; ///< In the scan's order.
    PerTable<CodeTable> dcTables;
    PerTable<CodeTable> acTables;
    qsizetype scanSegment = 0; ///< Where the scan's segment begins, with its marker.
    qsizetype data = 0;        ///< Where the entropy-coded data begins.
    QByteArray others;         ///< All segments before the scan's but the tables'.
};

std::uint8_t byteAt(QByteArrayView bytes, qsizetype at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

bool readTables(QByteArrayView segment, Header& header) {
    for (qsizetype at = 0; at < segment.size();) {
        const std::uint8_t which = byteAt(segment, at++);
        if (which >> 4 > 1 || (which & 0xF) >= kTablesOfAClass || segment.size() - at < kLongestCode)
            return false;
        CodeTable table;
        qsizetype symbols = 0;
        for (std::size_t length = 1; length <= kLongestCode; ++length)
            symbols += table.count[length] = byteAt(segment, at++);
        if (symbols > kSymbols || segment.size() - at < symbols)
            return false;
        const auto* const first = reinterpret_cast<const std::uint8_t*>(segment.data()) + at;
        table.symbols.assign(first, first + symbols);
        at += symbols;
        (which >> 4 == 0 ? header.dcTables : header.acTables)[which & 0xF] = std::move(table);
    }
    return true;
}

bool readFrame(QByteArrayView segment, Header& header) {
    constexpr qsizetype kFixed = 6;
    constexpr qsizetype kPerComponent = 3;
    if (!header.components.empty() || segment.size() < kFixed || byteAt(segment, 0) != 8)
        return false;
    header.height = qFromBigEndian<quint16>(segment.data() + 1);
    header.width = qFromBigEndian<quint16>(segment.data() + 3);
    const int count = byteAt(segment, 5);
    if (count < 1 || count > kMostComponents || segment.size() != kFixed + count * kPerComponent)
        return false;
    for (qsizetype at = kFixed; at < segment.size(); at += kPerComponent) {
        const std::uint8_t sampling = byteAt(segment, at + 1);
        const Component component{byteAt(segment, at), sampling >> 4, sampling & 0xF};
        if (component.horizontal < 1 || component.horizontal > 4 || component.vertical < 1 ||
            component.vertical > 4)
            return false;
        header.components.push_back(component);
    }
    return header.width > 0 && header.height > 0;
}

/// The one scan of all components, in the frame's order.
bool readScan(QByteArrayView segment, Header& header) {
    const auto count = static_cast<qsizetype>(header.components.size());
    if (count == 0 || segment.size() != 1 + 2 * count + 3 || byteAt(segment, 0) != count)
        return false;
    for (qsizetype i = 0; i < count; ++i) {
        Component& component = header.components[static_cast<std::size_t>(i)];
        const std::uint8_t tables = byteAt(segment, 2 + 2 * i);
        component.dcTable = tables >> 4;
        component.acTable = tables & 0xF;
        if (byteAt(segment, 1 + 2 * i) != component.id || component.dcTable >= kTablesOfAClass ||
            component.acTable >= kTablesOfAClass)
            return false;
    }
    return true;
}

std::optional<Header> readHeader(QByteArrayView jpeg) {
    Header header;
    if (jpeg.size() < 4 || byteAt(jpeg, 0) != kMarker || byteAt(jpeg, 1) != kStartOfImage)
        return std::nullopt;
    for (qsizetype at = 2; jpeg.size() - at >= 4;) {
        const std::uint8_t marker = byteAt(jpeg, at + 1);
        const qsizetype length = qFromBigEndian<quint16>(jpeg.data() + at + 2);
        if (byteAt(jpeg, at) != kMarker || length < 2 || jpeg.size() - at - 2 < length)
            return std::nullopt;
        const QByteArrayView content = jpeg.sliced(at + 4, length - 2);
        const qsizetype next = at + 2 + length;
        if (marker == kStartOfScan) {
            if (!readScan(content, header))
                return std::nullopt;
            header.scanSegment = at;
            header.data = next;
            return header;
        }
        // Of what has no segment, or needs more than one scan or restarts, an encoder of ours makes
        // nothing.
        const bool isFrame = marker >= kBaselineFrame && marker < kStartOfImage && marker != kHuffmanTables;
        if ((isFrame && marker != kBaselineFrame) || marker == kRestartInterval ||
            (marker == kBaselineFrame && !readFrame(content, header)) ||
            (marker == kHuffmanTables && !readTables(content, header)))
            return std::nullopt;
        if (marker != kHuffmanTables)
            header.others += jpeg.sliced(at, next - at);
        at = next;
    }
    return std::nullopt;
}

/// How often the scan repeats its sequence of blocks, and how many blocks of each component that holds
/// (A.2).
struct Layout {
    std::uint64_t units = 0;
    std::vector<int> blocks;
};

Layout layoutOf(const Header& header) {
    int widest = 1;
    int highest = 1;
    for (const Component& component : header.components) {
        widest = std::max(widest, component.horizontal);
        highest = std::max(highest, component.vertical);
    }
    const auto unitsIn = [](std::uint64_t pixels, int sampling) {
        const auto side = static_cast<std::uint64_t>(8 * sampling);
        return (pixels + side - 1) / side;
    };
    // A scan of one component goes block by block, whatever the sampling.
    if (header.components.size() == 1)
        return {unitsIn(header.width, 1) * unitsIn(header.height, 1), {1}};
    Layout layout{unitsIn(header.width, widest) * unitsIn(header.height, highest), {}};
    for (const Component& component : header.components)
        layout.blocks.push_back(component.horizontal * component.vertical);
    return layout;
}

/// Goes through the scan: `visit(isAC, table, symbol, bits, count)` for each symbol with the bits that
/// follow it. False where the data isn't what the header says.
template <typename Visit>
bool eachSymbol(const Header& header, const PerTable<std::optional<Decoder>>& dc,
                const PerTable<std::optional<Decoder>>& ac, QByteArrayView data, Visit&& visit) {
    BitReader reader(data);
    const Layout layout = layoutOf(header);
    const auto next = [&](const Decoder& decoder, std::uint8_t& symbol) {
        reader.prepare();
        const Decoder::Entry entry = decoder(reader.peekCode());
        reader.take(entry.length);
        symbol = entry.symbol;
        return entry.length > 0;
    };
    const auto block = [&](const Component& component) {
        std::uint8_t symbol = 0;
        if (!next(*dc[component.dcTable], symbol) || symbol > 15)
            return false;
        visit(false, component.dcTable, symbol, reader.take(symbol), symbol);
        for (int k = 1; k < kCoefficients; ++k) {
            if (!next(*ac[component.acTable], symbol))
                return false;
            const int count = symbol & 0xF;
            visit(true, component.acTable, symbol, reader.take(count), count);
            if (count == 0 && symbol != kZeroRun)
                break;
            k += symbol >> 4;
            if (k >= kCoefficients)
                return false;
        }
        return !reader.isPastEnd();
    };
    for (const Component& component : header.components) {
        if (!dc[component.dcTable] || !ac[component.acTable])
            return false;
    }
    for (std::uint64_t unit = 0; unit < layout.units; ++unit) {
        for (std::size_t i = 0; i < header.components.size(); ++i) {
            for (int repeat = 0; repeat < layout.blocks[i]; ++repeat) {
                if (!block(header.components[i]))
                    return false;
            }
        }
    }
    return true;
}

void appendTable(QByteArray& out, std::uint8_t which, const CodeTable& table) {
    const quint16 length = qToBigEndian(static_cast<quint16>(2 + 1 + kLongestCode + table.symbols.size()));
    out.append(static_cast<char>(kMarker));
    out.append(static_cast<char>(kHuffmanTables));
    out.append(reinterpret_cast<const char*>(&length), sizeof length);
    out.append(static_cast<char>(which));
    out.append(reinterpret_cast<const char*>(table.count.data()) + 1, kLongestCode);
    out.append(reinterpret_cast<const char*>(table.symbols.data()),
               static_cast<qsizetype>(table.symbols.size()));
}

} // namespace

std::optional<QByteArray> withOwnHuffmanCodes(const QByteArray& jpeg) {
    const auto header = readHeader(jpeg);
    if (!header)
        return std::nullopt;
    const QByteArrayView data = QByteArrayView(jpeg).sliced(header->data);
    PerTable<std::optional<Decoder>> dcDecoders;
    PerTable<std::optional<Decoder>> acDecoders;
    for (const Component& component : header->components) {
        dcDecoders[component.dcTable] = decoderOf(header->dcTables[component.dcTable]);
        acDecoders[component.acTable] = decoderOf(header->acTables[component.acTable]);
    }

    std::array<PerTable<Frequencies>, 2> frequencies{};
    const auto count = [&](bool isAC, std::size_t table, std::uint8_t symbol, std::uint32_t, int) {
        ++frequencies[isAC][table][symbol];
    };
    if (!eachSymbol(*header, dcDecoders, acDecoders, data, count))
        return std::nullopt;

    QByteArray out;
    out.reserve(jpeg.size());
    out.append(QByteArrayView(jpeg).first(2));
    out.append(header->others);
    std::array<PerTable<Encoder>, 2> encoders{};
    for (std::size_t kind = 0; kind < encoders.size(); ++kind) {
        for (std::size_t table = 0; table < kTablesOfAClass; ++table) {
            const Frequencies& of = frequencies[kind][table];
            if (std::all_of(of.begin(), of.end(), [](std::uint64_t frequency) { return frequency == 0; }))
                continue;
            const CodeTable best = bestTable(of);
            encoders[kind][table] = encoderOf(best);
            appendTable(out, static_cast<std::uint8_t>(kind << 4 | table), best);
        }
    }
    out.append(QByteArrayView(jpeg).sliced(header->scanSegment, header->data - header->scanSegment));
    BitWriter writer(out);
    eachSymbol(*header, dcDecoders, acDecoders, data,
               [&](bool isAC, std::size_t table, std::uint8_t symbol, std::uint32_t bits, int length) {
                   const Code code = encoders[isAC][table][symbol];
                   writer.put(std::uint32_t{code.bits} << length | bits, code.length + length);
               });
    writer.finish();
    out.append(static_cast<char>(kMarker));
    out.append(static_cast<char>(kEndOfImage));
    return out;
}

} // namespace platform
