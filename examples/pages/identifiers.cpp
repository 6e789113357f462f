// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "ace/SString.h"
#include "types/ObjectID.h"
#include "types/ObjectIDMap.h"

int main() {
    ObjectID lOurs;
    lOurs.generateObjectID();
    ObjectID lTheirs;
    lTheirs.setFromString(ACE_CString("6ba7b810-9dad-11d1-80b4-00c04fd430c8"));
    ObjectIDMap lNames;
    lNames.add(lOurs, lTheirs);
    ObjectID lSent(lOurs);
    lNames.translate(lSent);
    std::printf("%s is sent as %s\n", lOurs.toString().c_str(), lSent.toString().c_str());
    return lSent == lTheirs ? 0 : 1;
}
