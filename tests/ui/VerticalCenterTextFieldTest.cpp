#include "../support/WaitFor.h"

#include <ui/VerticalCenterTextField.h>

#include <QImage>
#include <QPainter>
#include <QTextLayout>

#include <gmock/gmock.h>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace {

class VerticalCenterTextFieldTest : public testing::Test
{
protected:
    VerticalCenterTextFieldTest()
    {
        field.setText(u"one line"_s);
        QTextLayout layout(field.text(), field.font());
        layout.beginLayout();
        QTextLine line = layout.createLine();
        line.setLineWidth(200);
        h = line.height();
    }

    static QImage draw(const VerticalCenterTextField &drawn, const QRectF &frame, qreal scale = 1)
    {
        QImage image(QSize(200, 100) * scale, QImage::Format_RGB32);
        image.setDevicePixelRatio(scale);
        image.fill(Qt::gray);
        QPainter painter(&image);
        drawn.drawInteriorWithFrame(&painter, frame);
        EXPECT_EQ(painter.pen(), QPen()) << "the painter is given back as it was";
        return image;
    }

    // The first row of pixels that has a colour, or any but the paper's; -1 when there is none.
    static int firstRow(const QImage &image, std::optional<QColor> colour = std::nullopt)
    {
        for (int i = 0; i < image.height() * image.width(); ++i) {
            const QColor pixel = image.pixelColor(i % image.width(), i / image.width());
            if (colour ? pixel == *colour : pixel != QColor(Qt::gray))
                return i / image.width();
        }
        return -1;
    }

    VerticalCenterTextField field;
    qreal h = 0; // the height of one line
};

TEST_F(VerticalCenterTextFieldTest, CentresInTheBounds)
{
    EXPECT_EQ(field.titleRectForBounds({0, 0, 200, h + 23}), QRectF(0, 11.5, 200, h));
    EXPECT_EQ(field.titleRectForBounds({3.25, 10.5, 9999, h + 23.25}),
              QRectF(3.25, 22.125, 9999, h));

    // The label's own rectangle, here indented from the top, gives horizontal position and width
    // alone.
    field.setMargin(4);
    field.setIndent(10);
    field.setAlignment(Qt::AlignLeft | Qt::AlignTop);
    EXPECT_EQ(field.titleRectForBounds({0, 0, 200, h + 23}), QRectF(14, 11.5, 182, h));
}

TEST_F(VerticalCenterTextFieldTest, LeavesTheLabelsRectangleToATextThatFillsIt)
{
    EXPECT_EQ(field.titleRectForBounds({0, 5, 200, h}), QRectF(0, 5, 200, h));
    field.setText(u"1\n2\n3"_s);
    EXPECT_EQ(field.titleRectForBounds({0, 5, 200, 3 * h - 0.5}), QRectF(0, 5, 200, 3 * h - 0.5));
    EXPECT_EQ(field.titleRectForBounds({0, 5, 200, 3 * h + 1}), QRectF(0, 5.5, 200, 3 * h));
    field.setIndent(10);
    field.setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    EXPECT_EQ(field.titleRectForBounds({0, 5, 200, 3 * h + 10}), QRectF(0, 15, 200, 3 * h));
}

TEST_F(VerticalCenterTextFieldTest, CollapsesWithoutText)
{
    EXPECT_EQ(field.textFormat(), Qt::PlainText) << "Also for those who read it aloud.";
    field.clear();
    EXPECT_EQ(field.titleRectForBounds({0, 10, 200, 41}), QRectF(0, 30.5, 200, 0));
    EXPECT_EQ(firstRow(draw(field, {0, 0, 200, 100})), -1);
}

TEST_F(VerticalCenterTextFieldTest, WantsRoomForTextAndMargins)
{
    const QSize hint = field.sizeHint();
    const QSize least = field.minimumSizeHint();
    EXPECT_EQ(hint.height(), std::ceil(h));
    EXPECT_GT(least.width(), least.height()) << "some letters";
    field.setMargin(4);
    EXPECT_EQ(field.sizeHint(), hint + QSize(8, 8));
    EXPECT_EQ(field.minimumSizeHint(), least + QSize(8, 8));
    EXPECT_GT(field.heightForWidth(hint.width()), hint.height() + 8) << "a line more";
    field.setText(QString(500, u'W'));
    const qreal character = QFontMetricsF(field.font()).averageCharWidth();
    EXPECT_EQ(field.sizeHint().width() - 8, std::ceil(60 * character)) << "A text, not a ribbon.";
}

TEST_F(VerticalCenterTextFieldTest, ShrinksThePartThatMayToWhatFits)
{
    VerticalCenterTextField shrunk;
    shrunk.setText(u"1 WWW…WW"_s);
    const QString part(500, u'W');
    field.setText(u"1 "_s + part);
    field.setShrinkingPart(part);
    const QRectF frame({}, shrunk.sizeHint());
    EXPECT_EQ(draw(field, frame), draw(shrunk, frame));
}

// One unit more height moves the text down by half a unit, which is one pixel at scale 2.
TEST_F(VerticalCenterTextFieldTest, KeepsFractionsWhenDrawing)
{
    const int row = firstRow(draw(field, {0, 0, 200, h + 22}, 2));
    EXPECT_GT(row, 0);
    EXPECT_EQ(firstRow(draw(field, {0, 0, 200, h + 23}, 2)), row + 1);
}

TEST_F(VerticalCenterTextFieldTest, ElidesTheLastVisibleLine)
{
    VerticalCenterTextField elided;
    elided.setText(u"1\n2…"_s);
    field.setText(u"1\n2\n3"_s);
    EXPECT_EQ(draw(field, {0, 0, 200, 3 * h - 1}), draw(elided, {0, 0, 200, 2 * h}));

    // One that is shown as a whole still runs the way of the text.
    field.setText(u"1a\nא!"_s);
    elided.setText(u"1a\n\u200eא!"_s);
    EXPECT_EQ(draw(field, {0, 0, 200, 2 * h}), draw(elided, {0, 0, 200, 2 * h}));

    // A word that is wider than the field is broken, and stays in the rectangle.
    field.setText(QString(500, u'W'));
    EXPECT_GT(field.heightForWidth(100), 2 * h);
    const QRect below(0, static_cast<int>(2 * h), 200, 20);
    EXPECT_EQ(firstRow(draw(field, {0, 0, 100, 2 * h}).copy(below)), -1);
}

TEST_F(VerticalCenterTextFieldTest, IsWhiteOnlyWhenHighlightedOnDark)
{
    QPalette palette;
    palette.setColor(QPalette::WindowText, Qt::red);
    field.setPalette(palette);
    field.setText(u"████"_s);
    EXPECT_FALSE(field.isHighlighted());
    for (const int i : {0, 1, 2, 3}) {
        field.setHighlighted(i % 2 == 1);
        field.setBackgroundStyle(i >= 2 ? VerticalCenterTextField::Dark
                                        : VerticalCenterTextField::Light);
        const QImage image = draw(field, {0, 0, 200, h});
        EXPECT_EQ(firstRow(image, Qt::white) >= 0, i == 3) << i;
        EXPECT_EQ(firstRow(image, Qt::red) >= 0, i != 3) << i;
    }
}

TEST_F(VerticalCenterTextFieldTest, IsDrawnAnewWhenItsLooksChange)
{
    struct Watched final : VerticalCenterTextField
    {
        void drawInteriorWithFrame(QPainter *, const QRectF &) const override { isDrawn = true; }
        mutable bool isDrawn = false;
    } shown;
    shown.setText(field.text());
    const std::function<void()> changes[] = {
        [&] { shown.show(); }, [&] { shown.setHighlighted(true); },
        [&] { shown.setBackgroundStyle(VerticalCenterTextField::Dark); },
        [&] { shown.setShrinkingPart(u"part"_s); }};
    for (const auto &change : changes) {
        QCoreApplication::processEvents();
        shown.isDrawn = false;
        change();
        EXPECT_TRUE(waitFor([&] { return shown.isDrawn; })) << &change - changes;
    }
}

TEST_F(VerticalCenterTextFieldTest, DrawsWhereASubclassSays)
{
    class Lower final : public VerticalCenterTextField
    {
        QRectF titleRectForBounds(const QRectF &) const override { return {0, 60, 200, 30}; }
    } lower;
    lower.setText(field.text());
    EXPECT_GE(firstRow(draw(lower, {0, 0, 200, h + 20})), 60);
}

} // namespace
