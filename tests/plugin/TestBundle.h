#pragma once

#include <QtCore/QTemporaryDir>

/// A copy of the built bundle's resources that a test may take things from.
class TestBundle {
public:
    TestBundle();

    QString path() const { return folder_.path(); }
    void remove(const QString& resource);
    void write(const QString& resource, const QByteArray& content);
    /// Puts the built bundle's own resource back.
    void restore(const QString& resource);

private:
    QString pathOf(const QString& resource) const;
    QTemporaryDir folder_;
};
