#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>
#include <optional>

class QWidget;

namespace platform {

/// The folder that holds a plug-in's module and its `Resources/`.
class Bundle {
public:
    explicit Bundle(const QString& path);

    QString path() const { return path_; }
    QString resourcesPath() const;
    /// Absolute path of the resource `name`.`type`; without a value where there is none.
    std::optional<QString> pathForResource(const QString& name, const QString& type) const;

    /// Builds the widgets of the interface description file `name`.ui (Qt Designer's format). Null where
    /// it is missing or can't be read. Main thread.
    std::unique_ptr<QWidget> loadInterface(const QString& name) const;

private:
    QString path_;
};

} // namespace platform
