#include "service/LoginParser.h"
#include "tests/fuzz/FuzzData.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const QSet<QString> keys{kSuccessKey, kUserIdKey, kEncPasswordKey, kLoggedInNameKey,
                                    kAllowHighResUploadsKey};
    LoginParser parser;
    require(parser.parseData(answerOf(data, size)));
    require(parser.loginResult() != nullptr);
    const auto& texts = parser.loginResult()->texts();
    for (auto text = texts.cbegin(); text != texts.cend(); ++text) {
        require(keys.contains(text.key()));
        require(!text.value().contains(QChar::Null));
    }
    return 0;
}
