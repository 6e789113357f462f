#include <QCoreApplication>

int main(int aCount, char** aArguments) {
    const QCoreApplication lApplication(aCount, aArguments);
    return QCoreApplication::exec();
}
