# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# cmake -DROOT=... -DFILES=... -DVERSION=... -DACE_VERSION=... -DOUTPUT=... -P writeSbom.cmake
# Writes what the installed library consists of, as SPDX 2.3 in JSON. FILES are relative to ROOT; those
# that are links are left out. A package that changes files after they were installed, by stripping
# them, runs this again. The time is SOURCE_DATE_EPOCH's, if that is set.
cmake_minimum_required(VERSION 3.25)
string(TIMESTAMP lCreated "%Y-%m-%dT%H:%M:%SZ" UTC)

set(lRegular "")
foreach(lFile IN LISTS FILES)
  if(NOT IS_SYMLINK "${ROOT}/${lFile}")
    list(APPEND lRegular "${lFile}")
  endif()
endforeach()
list(SORT lRegular)

set(lFiles "")
set(lContains "")
set(lSums "")
set(lNumber 0)
foreach(lFile IN LISTS lRegular)
  math(EXPR lNumber "${lNumber} + 1")
  file(SHA1 "${ROOT}/${lFile}" lSha1)
  file(SHA256 "${ROOT}/${lFile}" lSha256)
  list(APPEND lSums ${lSha1})
  string(APPEND lFiles "${lComma}
    {
      \"SPDXID\": \"SPDXRef-File-${lNumber}\",
      \"fileName\": \"./${lFile}\",
      \"checksums\": [
        {\"algorithm\": \"SHA1\", \"checksumValue\": \"${lSha1}\"},
        {\"algorithm\": \"SHA256\", \"checksumValue\": \"${lSha256}\"}
      ],
      \"licenseConcluded\": \"MIT\",
      \"copyrightText\": \"2026 The osx maintainers\"
    }")
  string(APPEND lContains ",
    {
      \"spdxElementId\": \"SPDXRef-osx\",
      \"relationshipType\": \"CONTAINS\",
      \"relatedSpdxElement\": \"SPDXRef-File-${lNumber}\"
    }")
  set(lComma ",")
endforeach()

# The verification code of a package: the SHA1 of its files' SHA1s, in order, without separators.
list(SORT lSums)
list(JOIN lSums "" lSums)
string(SHA1 lCode "${lSums}")

file(WRITE "${OUTPUT}" "{
  \"spdxVersion\": \"SPDX-2.3\",
  \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"osx-${VERSION}\",
  \"documentNamespace\": \"https://example.org/spdx/osx-${VERSION}-${lCode}\",
  \"creationInfo\": {
    \"created\": \"${lCreated}\",
    \"creators\": [\"Organization: The osx maintainers\", \"Tool: cmake-${CMAKE_VERSION}\"]
  },
  \"packages\": [
    {
      \"SPDXID\": \"SPDXRef-osx\",
      \"name\": \"osx\",
      \"versionInfo\": \"${VERSION}\",
      \"supplier\": \"Organization: The osx maintainers\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": true,
      \"packageVerificationCode\": {\"packageVerificationCodeValue\": \"${lCode}\"},
      \"licenseConcluded\": \"MIT\",
      \"licenseDeclared\": \"MIT\",
      \"copyrightText\": \"2026 The osx maintainers\",
      \"primaryPackagePurpose\": \"LIBRARY\"
    },
    {
      \"SPDXID\": \"SPDXRef-ACE\",
      \"name\": \"ACE\",
      \"versionInfo\": \"${ACE_VERSION}\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false,
      \"licenseConcluded\": \"NOASSERTION\",
      \"licenseDeclared\": \"DOC\",
      \"copyrightText\": \"NOASSERTION\"
    }
  ],
  \"files\": [${lFiles}
  ],
  \"relationships\": [
    {
      \"spdxElementId\": \"SPDXRef-DOCUMENT\",
      \"relationshipType\": \"DESCRIBES\",
      \"relatedSpdxElement\": \"SPDXRef-osx\"
    },
    {
      \"spdxElementId\": \"SPDXRef-osx\",
      \"relationshipType\": \"DYNAMIC_LINK\",
      \"relatedSpdxElement\": \"SPDXRef-ACE\"
    }${lContains}
  ]
}
")
