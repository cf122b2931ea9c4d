#include "textfile.h"

#include <string.h>

int ReadTextFile(const char *dir, const char *name, MallocPtr<char> &text)
{
    uint64_t size = FileSize(dir, name);
    if (size == 0) return -1;
    FilePtr f = OpenIn(dir, name, "rb");
    if (!f) return -2;
    if (size > SIZE_MAX - 1) return -3;
    text.reset((char *)malloc((size_t)size + 1));
    if (!text) return -3;
    // The file may have shrunk since it was sized: what was read is the text.
    size_t got = fread(text.get(), 1, (size_t)size, f.get());
    text.get()[got] = 0;
    return 0;
}

void StripLineEnd(char *text)
{
    size_t length = strlen(text);
    if (length > 0 && text[length - 1] == '\n') text[--length] = 0;
    if (length > 0 && text[length - 1] == '\r') text[--length] = 0;
}
