#include "studentpanel.h"

#include "question.h"
#include "theme.h"
#include "words.h"

#include <QGridLayout>
#include <QInputDialog>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>

namespace {

constexpr int pictureSide = 48;
constexpr int nameRole = Qt::UserRole;
constexpr int pictureRole = Qt::UserRole + 1;

/// The picture with round corners, or the first letter of the name.
QPixmap portrait(const Student &student, double density)
{
    QPixmap made(QSize(pictureSide, pictureSide) * density);
    made.setDevicePixelRatio(density);
    made.fill(Qt::transparent);
    QPainter painter(&made);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    QPainterPath shape;
    shape.addRoundedRect(0, 0, pictureSide, pictureSide, 8, 8);
    painter.setClipPath(shape);
    if (!student.picture.isNull()) {
        painter.drawImage(QRect(0, 0, pictureSide, pictureSide), student.picture);
        return made;
    }
    painter.fillRect(0, 0, pictureSide, pictureSide, QColor(0x5a, 0x6b, 0x7b));
    QFont font = painter.font();
    font.setPixelSize(24);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(QRect(0, 0, pictureSide, pictureSide), Qt::AlignCenter, student.name.left(1));
    return made;
}

QPushButton *makeButton(const QString &icon, const QString &text, const QString &tip)
{
    auto *const button = new QPushButton(text);
    theme::setIcon(button, icon);
    button->setToolTip(tip);
    button->setAutoDefault(true);
    return button;
}

} // namespace

StudentPanel::StudentPanel(LessonControl *lesson)
    : m_lesson(lesson),
      m_list(new QListWidget),
      m_heading(new QLabel),
      m_empty(new QLabel(
          tr("Nobody is enrolled yet.\n\nPress “Find faces”, then click a face in the picture and type "
             "the name. Or import a folder of portraits whose files are named after the students."))),
      m_pages(new QStackedLayout),
      m_enrol(
          makeButton("enrol", tr("Name faces…"), tr("Goes through the faces that nobody knows, one by one"))),
      m_import(makeButton("import", tr("Import…"), tr("Enrols a folder of portraits"))),
      m_rename(makeButton("rename", tr("Rename…"), tr("Gives the selected student another name (F2)"))),
      m_replace(
          makeButton("replace", tr("New face…"), tr("Takes a picture file as the selected student's face"))),
      m_delete(makeButton("delete", tr("Delete…"), tr("Forgets the selected student (Del)")))
{
    m_list->setIconSize({pictureSide, pictureSide});
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setAccessibleName(tr("Students"));
    m_empty->setWordWrap(true);
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setMargin(16);
    QFont bold = font();
    bold.setBold(true);
    m_heading->setFont(bold);
    m_rename->setShortcut(Qt::Key_F2);
    m_delete->setShortcut(Qt::Key_Delete);

    auto *const layout = new QGridLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addWidget(m_heading, 0, 0, 1, 6);
    layout->addLayout(m_pages, 1, 0, 1, 6);
    m_pages->addWidget(m_list);
    m_pages->addWidget(m_empty);
    layout->addWidget(m_enrol, 2, 0, 1, 3);
    layout->addWidget(m_import, 2, 3, 1, 3);
    layout->addWidget(m_rename, 3, 0, 1, 2);
    layout->addWidget(m_replace, 3, 2, 1, 2);
    layout->addWidget(m_delete, 3, 4, 1, 2);
    layout->setRowStretch(1, 1);

    const auto selected = [this] { return selectedStudents().value(0); };
    connect(m_enrol, &QPushButton::clicked, this, &StudentPanel::enrolWanted);
    connect(m_import, &QPushButton::clicked, this, &StudentPanel::importWanted);
    connect(m_rename, &QPushButton::clicked, this, [=] { rename(selected()); });
    connect(m_replace, &QPushButton::clicked, this, [=] { emit replaceWanted(selected()); });
    connect(m_delete, &QPushButton::clicked, this, [=] { remove(selected()); });
    connect(m_list, &QListWidget::itemActivated, this, [=] { rename(selected()); });
    connect(m_list, &QListWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        if (const auto *const item = m_list->itemAt(position))
            emit menuWanted(item->data(nameRole).toString(), m_list->viewport()->mapToGlobal(position));
    });
    connect(m_list, &QListWidget::itemSelectionChanged, this, [this] {
        updateButtons();
        emit selectionChanged();
    });
    connect(&lesson->model(), &ClassModel::studentsChanged, this, &StudentPanel::refresh);
    connect(lesson, &LessonControl::changed, this, &StudentPanel::updateButtons);
    connect(&m_seconds, &QTimer::timeout, this, &StudentPanel::refreshTexts);
    m_seconds.start(1000);
    refresh();
}

QStringList StudentPanel::selectedStudents() const
{
    QStringList names;
    for (const auto *const item : m_list->selectedItems())
        names.append(item->data(nameRole).toString());
    return names;
}

void StudentPanel::refresh()
{
    const auto students = m_lesson->model().students();
    const QStringList selected = selectedStudents();
    const QSignalBlocker blocker(m_list);
    // Only what has changed, so that the list does not jump under the mouse.
    while (m_list->count() > students.size())
        delete m_list->takeItem(m_list->count() - 1);
    while (m_list->count() < students.size())
        m_list->addItem(new QListWidgetItem);
    for (int row = 0; row < students.size(); ++row) {
        auto *const item = m_list->item(row);
        item->setData(nameRole, students[row].name);
        if (item->icon().isNull() || item->data(pictureRole) != students[row].picture.cacheKey()) {
            item->setData(pictureRole, students[row].picture.cacheKey());
            item->setIcon(portrait(students[row], devicePixelRatioF()));
        }
        item->setSelected(selected.contains(students[row].name));
    }
    m_pages->setCurrentIndex(students.isEmpty());
    m_heading->setText(tr("%n student(s)", nullptr, students.size()));
    refreshTexts();
    updateButtons();
}

void StudentPanel::refreshTexts()
{
    const auto students = m_lesson->model().students();
    const qint64 now = m_lesson->clock().elapsed();
    for (int row = 0; row < std::min(students.size(), m_list->count()); ++row) {
        const Student &student = students[row];
        QStringList facts;
        facts.append(student.lastSeen < 0 ? tr("not seen yet")
                     : now - student.lastSeen < 1000
                         ? tr("seen now")
                         : tr("seen %1 ago").arg(words::age(now - student.lastSeen)));
        if (student.score > 0)
            facts.append(tr("picture %1 %").arg(qRound(student.score)));
        if (!student.attributes.isEmpty())
            facts.append(student.attributes);
        m_list->item(row)->setText(student.name + '\n' + facts.join(QStringLiteral(" · ")));
    }
}

void StudentPanel::updateButtons()
{
    const bool isReady = m_lesson->isReady();
    const bool isOne = isReady && selectedStudents().size() == 1;
    m_enrol->setEnabled(isReady);
    m_import->setEnabled(isReady);
    m_rename->setEnabled(isOne);
    m_replace->setEnabled(isOne);
    m_delete->setEnabled(isOne);
}

void StudentPanel::tell(const QString &problem)
{
    if (!problem.isEmpty())
        QMessageBox::warning(window(), tr("Students"), problem);
}

void StudentPanel::rename(const QString &student)
{
    bool isGood = false;
    const QString name = QInputDialog::getText(window(), tr("Rename"), tr("New name of %1:").arg(student),
                                               QLineEdit::Normal, student, &isGood)
                             .trimmed();
    if (!isGood || name.isEmpty() || name == student)
        return;
    // The service would drop the one who has the name.
    if (m_lesson->model().knows(name))
        tell(tr("There is a student named %1 already.").arg(name));
    else
        m_lesson->rename(student, name, [this](const QString &problem) { tell(problem); });
}

void StudentPanel::remove(const QString &student)
{
    if (isConfirmed(window(), tr("Delete"),
                    tr("Forget %1 with all pictures? This cannot be taken back.").arg(student)))
        m_lesson->remove(student, [this](const QString &problem) { tell(problem); });
}
