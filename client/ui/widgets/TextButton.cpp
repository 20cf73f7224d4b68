#include "ui/widgets/TextButton.h"

#include <QFont>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>

namespace qorquicomponents {

namespace {
QFont titleFont(int pixelSize) {
    QFont font(QStringLiteral("Microsoft YaHei"));
    font.setBold(true);
    font.setPixelSize(pixelSize);
    return font;
}
}  // namespace

TextButton::TextButton(QWidget* parent)
    : QPushButton(parent), m_countLab(new QLabel(this)), m_titleLab(new QLabel(this)) {
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    m_countLab->setObjectName(QStringLiteral("deviceCountLab"));
    m_titleLab->setObjectName(QStringLiteral("deviceTitleLab"));
    for (QLabel* label : {m_countLab, m_titleLab}) label->setAttribute(Qt::WA_TransparentForMouseEvents, true);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 0, 12, 0);
    layout->setSpacing(4);
    layout->addWidget(m_countLab);
    layout->addWidget(m_titleLab);
    layout->addStretch();
    m_countLab->setText(QStringLiteral("0"));
    applyPixelSize(kStartPixelSize);
}

void TextButton::setTitleText(const QString& title) {
    m_titleLab->setText(title);
    adjustFontSize();
}

QString TextButton::titleText() const { return m_titleLab->text(); }
QString TextButton::countText() const { return m_countLab->text(); }

void TextButton::setListDeviceCount(unsigned int count) {
    m_countLab->setText(QString::number(count));
    adjustFontSize();
}

void TextButton::applyPixelSize(int size) {
    m_fontPixelSize = size;
    const QFont font = titleFont(size);
    m_countLab->setFont(font);
    m_titleLab->setFont(font);
}

void TextButton::adjustFontSize() {
    // Room for a two-digit count before the title.
    const QString text = QStringLiteral("99 ") + m_titleLab->text();
    int size = kStartPixelSize;
    applyPixelSize(size);
    int width = QFontMetrics(titleFont(size)).horizontalAdvance(text);
    while (width + kReservedWidth > kAvailableWidth && size >= kMinimumTriedPixelSize) {
        size -= 2;
        applyPixelSize(size);
        width = QFontMetrics(titleFont(size)).horizontalAdvance(text);
    }
}

}  // namespace qorquicomponents
