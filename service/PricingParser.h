#pragma once

#include "plugin/AtomicProperty.h"
#include "service/TextCollector.h"

/// Reads the answer to the finishing request.
class PricingParser final : private TextCollector {
public:
    PricingParser();

    /// Takes the result from a new answer; one without a result leaves the earlier. Always true.
    bool parseData(const QByteArray& data);

    /// The text of the last "Result" element; without a value where there was none.
    std::optional<QString> result() const { return result_.get(); }
    void setResult(std::optional<QString> result) { result_.set(std::move(result)); }

private:
    /// The elements that are collected.
    static const KeySet& initialize();
    void store(const QString& key, const QString& value) override;

    AtomicProperty<std::optional<QString>> result_;
};
