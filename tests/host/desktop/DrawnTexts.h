#pragma once

#include <QtCore/QStringList>
#include <QtGui/QPaintDevice>
#include <QtGui/QPaintEngine>
#include <QtWidgets/QWidget>

/// Notes what a widget writes, as it is given to the eye, and how many pictures it draws.
class DrawnTexts final : public QPaintDevice {
public:
    explicit DrawnTexts(QWidget& widget)
        : widget_(widget)
        , engine_(*this) {
        widget.render(this);
    }

    QStringList texts;
    int pictureCount = 0;

    QPaintEngine* paintEngine() const override { return &engine_; }

protected:
    int metric(PaintDeviceMetric metric) const override {
        switch (metric) {
        case PdmDevicePixelRatio:
            return 1;
        case PdmDevicePixelRatioScaled:
            return static_cast<int>(devicePixelRatioFScale());
        case PdmWidth:
            return widget_.width();
        case PdmHeight:
            return widget_.height();
        case PdmDepth:
            return 32;
        default:
            return 96; // Dots per inch.
        }
    }

private:
    class Engine final : public QPaintEngine {
    public:
        explicit Engine(DrawnTexts& drawn)
            : QPaintEngine(AllFeatures)
            , drawn_(drawn) {}
        bool begin(QPaintDevice*) override { return true; }
        bool end() override { return true; }
        void updateState(const QPaintEngineState&) override {}
        void drawPolygon(const QPointF*, int, PolygonDrawMode) override {}
        void drawPath(const QPainterPath&) override {}
        void drawTextItem(const QPointF&, const QTextItem& item) override { drawn_.texts << item.text(); }
        void drawPixmap(const QRectF&, const QPixmap&, const QRectF&) override { ++drawn_.pictureCount; }
        void drawImage(const QRectF&, const QImage&, const QRectF&, Qt::ImageConversionFlags) override {
            ++drawn_.pictureCount;
        }
        Type type() const override { return User; }

    private:
        DrawnTexts& drawn_;
    };

    QWidget& widget_;
    mutable Engine engine_;
};
