#pragma once
// A failure told to the user in a window of its own that the app does not wait for: what could
// not be done, and why.
//
//   showFailure(QStringLiteral("Couldn’t empty the Trash."), problem);
//
// Main thread only.

#include <string>

#include <QMessageBox>
#include <QString>

namespace kestrune {

inline void showFailure(const QString& what, const std::string& why)
{
    auto* failure = new QMessageBox(QMessageBox::Warning, QStringLiteral("Kestrune Dock"), what, QMessageBox::Ok);
    failure->setInformativeText(QString::fromStdString(why));
    failure->setAttribute(Qt::WA_DeleteOnClose);
    failure->show();
}

} // namespace kestrune
