// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <QCoreApplication>

int main(int aCount, char** aArguments) {
    const QCoreApplication lApplication(aCount, aArguments);
    return QCoreApplication::exec();
}
