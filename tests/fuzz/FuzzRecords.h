#pragma once

#include "service/Records.h"
#include "tests/fuzz/FuzzData.h"

/// What holds for every list of identified records, whatever the answer.
inline void requireSound(const std::shared_ptr<RecordList>& records) {
    require(records != nullptr);
    for (const auto& record : *records) {
        require(record != nullptr);
        require(!record->categories);
        require(!record->text(kIdKey) || !record->text(kIdKey)->isEmpty());
        for (auto text = record->texts().cbegin(); text != record->texts().cend(); ++text) {
            require(text.key() == kIdKey || text.key() == kNameKey);
            require(!text.value().contains(QChar::Null));
        }
    }
}
