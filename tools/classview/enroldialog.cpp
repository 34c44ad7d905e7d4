#include "enroldialog.h"

#include "theme.h"

#include <QDialogButtonBox>
#include <QPointer>
#include <QVBoxLayout>

namespace {

constexpr int pictureSide = 192;

} // namespace

EnrolDialog::EnrolDialog(LessonControl *lesson, const QVector<FoundFace> &faces, QWidget *parent)
    : QDialog(parent),
      m_lesson(lesson),
      m_faces(faces),
      m_picture(new QLabel),
      m_count(new QLabel),
      m_name(new QLineEdit),
      m_problem(new QLabel)
{
    setWindowTitle(tr("Who is this?"));
    m_picture->setFixedSize(pictureSide, pictureSide);
    m_name->setPlaceholderText(tr("Name"));
    m_name->setAccessibleName(tr("Name"));
    m_problem->setWordWrap(true);
    m_problem->hide();
    QPalette red = m_problem->palette();
    red.setColor(QPalette::WindowText, theme::bad());
    m_problem->setPalette(red);

    auto *const buttons = new QDialogButtonBox;
    m_enrol = buttons->addButton(tr("Enrol"), QDialogButtonBox::AcceptRole);
    m_skip = buttons->addButton(tr("Skip"), QDialogButtonBox::ActionRole);
    buttons->addButton(tr("Done"), QDialogButtonBox::RejectRole);
    // The line is disabled for the time of a request; the button that gets the focus must not take Enter
    // along.
    for (auto *const button : buttons->buttons())
        qobject_cast<QPushButton *>(button)->setAutoDefault(false);
    m_skip->setVisible(faces.size() > 1);

    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(m_count, 0, Qt::AlignHCenter);
    layout->addWidget(m_picture, 0, Qt::AlignHCenter);
    layout->addWidget(m_name);
    layout->addWidget(m_problem);
    layout->addWidget(buttons);

    connect(m_name, &QLineEdit::returnPressed, this, &EnrolDialog::enrol);
    connect(m_enrol, &QPushButton::clicked, this, &EnrolDialog::enrol);
    connect(m_skip, &QPushButton::clicked, this, &EnrolDialog::next);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_name, &QLineEdit::textChanged, this,
            [this](const QString &text) { m_enrol->setEnabled(!text.trimmed().isEmpty()); });
    showFace();
}

void EnrolDialog::showFace()
{
    const FoundFace &face = m_faces[m_current];
    const double density = devicePixelRatioF();
    QPixmap shown = QPixmap::fromImage(face.picture.scaled(QSize(pictureSide, pictureSide) * density,
                                                           Qt::KeepAspectRatio, Qt::SmoothTransformation));
    shown.setDevicePixelRatio(density);
    m_picture->setPixmap(shown);
    m_count->setText(tr("Face %1 of %2").arg(m_current + 1).arg(m_faces.size()));
    m_count->setVisible(m_faces.size() > 1);
    m_problem->hide();
    m_name->clear();
    setWaiting(false);
    m_enrol->setEnabled(false);
}

void EnrolDialog::setWaiting(bool isWaiting)
{
    m_name->setEnabled(!isWaiting);
    m_enrol->setEnabled(!isWaiting);
    m_skip->setEnabled(!isWaiting);
    if (!isWaiting)
        m_name->setFocus();
}

void EnrolDialog::enrol()
{
    const QString name = m_name->text().trimmed();
    if (name.isEmpty() || !m_name->isEnabled())
        return;
    setWaiting(true);
    const FoundFace &face = m_faces[m_current];
    m_lesson->enrol(name, face.faceText, face.place,
                    [dialog = QPointer<EnrolDialog>(this)](const QString &problem) {
                        if (!dialog)
                            return;
                        if (problem.isEmpty()) {
                            ++dialog->m_enrolled;
                            dialog->next();
                            return;
                        }
                        dialog->m_problem->setText(problem);
                        dialog->m_problem->show();
                        dialog->setWaiting(false);
                        dialog->m_name->selectAll();
                    });
}

void EnrolDialog::next()
{
    if (++m_current < m_faces.size())
        showFace();
    else
        accept();
}
