#pragma once

#include "service/Records.h"

/// A record for an element that has just begun: with the "id" of its attributes, unless that is empty.
inline std::shared_ptr<Record> identifiedRecord(const QHash<QString, QString>& attributes) {
    auto record = std::make_shared<Record>();
    if (const QString id = attributes.value(kIdKey); !id.isEmpty())
        record->setText(kIdKey, id);
    return record;
}
