#include "WelcomeWindow.h"

#include "PencilIconEngine.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
constexpr int windowWidth = 420;
constexpr int padding = 22;
constexpr int spacing = 12;
constexpr int titleRowSpacing = 10;
constexpr int instructionSpacing = 4;
constexpr int symbolSize = 34;

QFont scaledFont(const QFont& base, qreal factor, bool bold) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * factor);
    font.setBold(bold);
    return font;
}
} // namespace

WelcomeWindow::WelcomeWindow(const QString& hotkey, std::function<void()> onClose, QWidget* parent)
    : QDialog(parent, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                          Qt::WindowCloseButtonHint),
      onClose(std::move(onClose)) {
    setWindowTitle(tr("Welcome to Quillery"));

    auto* column = new QVBoxLayout(this);
    column->setSpacing(spacing);
    column->setContentsMargins(padding, padding, padding, padding);
    column->addLayout(makeTitleRow());

    introductionLabel = makeWrappingLabel(QString(), font());
    setShortcut(hotkey);
    column->addWidget(introductionLabel);

    auto* instructionsColumn = new QVBoxLayout;
    instructionsColumn->setSpacing(instructionSpacing);
    const QFont callout = scaledFont(font(), 0.92, false);
    instructionLabels = {
        makeWrappingLabel(tr("While drawing"), scaledFont(font(), 1.0, true)),
        makeWrappingLabel(tr("Drag to draw. P pen, A arrow, E ellipse, R rectangle, H "
                             "highlighter, T text (click, type, Return)."),
                          callout),
        makeWrappingLabel(tr("1–6 pick a color, [ and ] change size, Ctrl+Z undo, C clears "
                             "everything."),
                          callout),
        makeWrappingLabel(tr("Drawings fade away on their own. Change the delay from the tray "
                             "icon."),
                          callout),
    };
    for (QLabel* label : instructionLabels) {
        label->setForegroundRole(QPalette::PlaceholderText);
        instructionsColumn->addWidget(label);
    }
    column->addLayout(instructionsColumn);

    auto* buttonRow = new QHBoxLayout;
    buttonRow->addStretch(1);
    gotIt = new QPushButton(tr("Got it"), this);
    gotIt->setDefault(true);
    buttonRow->addWidget(gotIt);
    column->addLayout(buttonRow);
    connect(gotIt, &QPushButton::clicked, this, [this] {
        if (this->onClose)
            this->onClose();
    });

    setFixedWidth(windowWidth);
    setFixedHeight(column->totalHeightForWidth(windowWidth));
}

QLayout* WelcomeWindow::makeTitleRow() {
    auto* row = new QHBoxLayout;
    row->setSpacing(titleRowSpacing);
    auto* symbol = new QLabel(this);
    const QIcon icon = PencilIconEngine::icon(PencilIconEngine::Variant::filled,
                                              palette().color(QPalette::Highlight));
    symbol->setPixmap(icon.pixmap(QSize(symbolSize, symbolSize), devicePixelRatioF()));
    symbol->setFixedSize(symbolSize, symbolSize);
    row->addWidget(symbol, 0, Qt::AlignVCenter);
    auto* title = new QLabel(QStringLiteral("Quillery"), this);
    title->setFont(scaledFont(font(), 1.3, true));
    row->addWidget(title, 0, Qt::AlignVCenter);
    row->addStretch(1);
    return row;
}

QLabel* WelcomeWindow::makeWrappingLabel(const QString& text, const QFont& font) {
    auto* label = new QLabel(text, this);
    label->setFont(font);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    return label;
}

void WelcomeWindow::setShortcut(const QString& hotkey) {
    introductionLabel->setText(
        hotkey.isEmpty()
            ? tr("Bind \"quillery --toggle\" to a key in your desktop's keyboard settings, then "
                 "press it anywhere to draw on top of everything on your screen. Press it again, "
                 "or Esc, to stop.")
            : tr("Press %1 anywhere to draw on top of everything on your screen. Press it again, "
                 "or Esc, to stop.")
                  .arg(hotkey));
}

QString WelcomeWindow::introduction() const {
    return introductionLabel->text();
}

QStringList WelcomeWindow::instructions() const {
    QStringList texts;
    for (const QLabel* label : instructionLabels)
        texts << label->text();
    return texts;
}
