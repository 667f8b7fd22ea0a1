// The answer of a multipart upload: a file record whose name becomes a cache file's name.
#include "FuzzInput.h"
#include "IMFile.h"

IMFilePtr parloUploadedFile(const QByteArray &answer);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzApplication();
    if (const IMFilePtr file = parloUploadedFile(fuzzBytes(data, size)))
        file->toDictionary();
    return 0;
}
