#include "Recorder.h"

#include <cstdio>

#include "commif/commif.h"

namespace gateway {

namespace {
constexpr unsigned int kWriteOnly = 0x1;
constexpr unsigned int kAppend = 0x8;
constexpr unsigned int kCreate = 0x100;
}  // namespace

Recorder::Recorder(const std::string& aFileName) {
    if (aFileName.empty()) {
        return;
    }
    commIfDevParams_t lParameters{};
    lParameters.devType = eFILE;
    lParameters.file.openMode = kWriteOnly | kAppend | kCreate;
    std::snprintf(lParameters.file.fileName, sizeof lParameters.file.fileName, "%s",
                  aFileName.c_str());
    if (commIfOpen(&mDescriptor, &lParameters, nullptr) != COMMIF_OK) {
        std::fprintf(stderr, "gateway: cannot record to %s\n", aFileName.c_str());
    }
}

Recorder::~Recorder() {
    if (mDescriptor >= 0) {
        commIfClose(mDescriptor);
    }
}

void Recorder::write(const std::string& aLine) {
    if (mDescriptor < 0) {
        return;
    }
    std::string lLine = aLine + "\n";
    unsigned long lWritten = 0;
    commIfWrite(mDescriptor, reinterpret_cast<unsigned char*>(lLine.data()), lLine.size(),
                &lWritten);
}

}  // namespace gateway
