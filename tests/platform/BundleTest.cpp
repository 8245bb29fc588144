#include "platform/Bundle.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>
#include <QtGui/QPixmap>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>

#include <gtest/gtest.h>

namespace {

constexpr char kInterface[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ui version="4.0">
 <class>Form</class>
 <widget class="QWidget" name="Form">
  <layout class="QVBoxLayout">
   <item><widget class="QLineEdit" name="field"><property name="text"><string>Zoë</string></property></widget></item>
   <item><widget class="QLabel" name="picture"><property name="pixmap"><pixmap>dot.png</pixmap></property></widget></item>
  </layout>
 </widget>
</ui>
)";

QStringList& messages() {
    static QStringList all;
    return all;
}

class Bundle : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QDir().mkpath(bundle_.resourcesPath()));
        QImage dot(3, 3, QImage::Format_RGB32);
        dot.fill(Qt::red);
        ASSERT_TRUE(dot.save(bundle_.resourcesPath() + QStringLiteral("/dot.png")));
        messages().clear();
        previous_ = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& message) { messages() += message; });
    }
    void TearDown() override { qInstallMessageHandler(previous_); }

    void write(const QString& name, const QByteArray& content) {
        QFile file(bundle_.resourcesPath() + QLatin1Char('/') + name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    const QTemporaryDir folder_;
    const platform::Bundle bundle_{folder_.filePath(QStringLiteral("Quillmark.bundle"))};

private:
    QtMessageHandler previous_ = nullptr;
};

TEST_F(Bundle, ResourceIsFoundByNameAndType) {
    write(QStringLiteral("ProPhotoRGB.icc"), "profile");
    EXPECT_EQ(bundle_.pathForResource(QStringLiteral("ProPhotoRGB"), QStringLiteral("icc")),
              folder_.filePath(QStringLiteral("Quillmark.bundle/Resources/ProPhotoRGB.icc")));
    EXPECT_FALSE(bundle_.pathForResource(QStringLiteral("ProPhotoRGB"), QStringLiteral("ui")));
    EXPECT_FALSE(bundle_.pathForResource(QStringLiteral("prophotorgb"), QStringLiteral("icc")));
}

TEST_F(Bundle, FolderIsNoResource) {
    ASSERT_TRUE(QDir(bundle_.resourcesPath()).mkdir(QStringLiteral("x.icc")));
    EXPECT_FALSE(bundle_.pathForResource(QStringLiteral("x"), QStringLiteral("icc")));
}

TEST_F(Bundle, PathsAreAbsolute) {
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(folder_.path()));
    const platform::Bundle relative(QStringLiteral("Quillmark.bundle"));
    ASSERT_TRUE(QDir::setCurrent(before));
    EXPECT_EQ(relative.path(), bundle_.path());
    EXPECT_TRUE(relative.pathForResource(QStringLiteral("dot"), QStringLiteral("png")));
}

TEST_F(Bundle, InterfaceIsBuiltWithItsPictures) {
    write(QStringLiteral("Form.ui"), kInterface);
    const auto view = bundle_.loadInterface(QStringLiteral("Form"));
    ASSERT_TRUE(view);
    auto* field = view->findChild<QLineEdit*>(QStringLiteral("field"));
    ASSERT_TRUE(field);
    EXPECT_EQ(field->text(), QStringLiteral("Zoë"));
    auto* picture = view->findChild<QLabel*>(QStringLiteral("picture"));
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->pixmap(Qt::ReturnByValue).size(), QSize(3, 3));
    EXPECT_EQ(messages().join(QLatin1Char('\n')).toStdString(), "");
}

TEST_F(Bundle, MissingInterfaceIsNullAndSilent) {
    EXPECT_FALSE(bundle_.loadInterface(QStringLiteral("Form")));
    EXPECT_EQ(messages().join(QLatin1Char('\n')).toStdString(), "");
}

TEST_F(Bundle, BrokenInterfaceIsNullAndSilent) {
    const QByteArray whole(kInterface);
    const QList<QByteArray> contents = {
        QByteArray(),
        "\x89PNG\r\n",
        "<html><body>404</body></html>",
        "<ui version=\"4.0\"></ui>",
        "<ui version=\"4.0\"><widget class=\"NoSuchWidget\" name=\"x\"/></ui>",
        whole.left(whole.size() / 2),
        whole.left(whole.size() - 8),
        QByteArray(whole).replace("</layout>", "</layuot>"),
        QByteArray(whole).replace("Zo\xC3\xAB", "Zo\xEB")};
    for (const QByteArray& content : contents) {
        write(QStringLiteral("Form.ui"), content);
        EXPECT_FALSE(bundle_.loadInterface(QStringLiteral("Form"))) << content.toStdString();
        EXPECT_EQ(messages().join(QLatin1Char('\n')).toStdString(), "") << content.toStdString();
    }
}

TEST_F(Bundle, BundleThatIsGoneHasNoInterface) {
    EXPECT_FALSE(
        platform::Bundle(folder_.filePath(QStringLiteral("gone"))).loadInterface(QStringLiteral("Form")));
    EXPECT_EQ(messages().join(QLatin1Char('\n')).toStdString(), "");
}

} // namespace
