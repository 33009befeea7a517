#pragma once

#include <QWidget>

namespace ZVPlatform {

/// Shows the icon of the host application, at twice the size of large icons; takes no room when the
/// host has none.
class ApplicationIcon final : public QWidget
{
    Q_OBJECT

public:
    explicit ApplicationIcon(QWidget *parent);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;

private:
    void refresh();
};

} // namespace ZVPlatform
