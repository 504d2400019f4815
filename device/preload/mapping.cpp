#include "device/preload/mapping.h"

#include <climits>
#include <cstring>

namespace {

struct DevicePath {
    const char* path;
    PathKind kind;
};

// All mapped paths. A folder is written without a slash at its end and covers everything below it.
constexpr DevicePath DEVICE_PATHS[] = {
    {"/dev/fb0", PathKind::File},
    {"/dev/mem", PathKind::File},
    {"/dev/mmcblk1", PathKind::File},
    {"/dev/kmsg", PathKind::KernelLog},
    {"/var/volatile/message-broker.socket", PathKind::File},
    {"/update", PathKind::Folder},
    {"/var/LDA", PathKind::Folder},
    {"/var/FOR", PathKind::Folder},
    {"/var/SETUPS", PathKind::Folder},
    {"/tmp/post-data", PathKind::File},
};

// Builds an absolute path. REQUIRES: at most PATH_MAX characters in all.
struct PlainPath {
    char text[PATH_MAX + 1] = "";
    std::size_t length = 0;

    void append(const char* component, std::size_t size) {
        text[length++] = '/';
        std::memcpy(text + length, component, size);
        length += size;
        text[length] = '\0';
    }

    void removeLast() {
        while (length > 0 && text[--length] != '/') {
        }
        text[length] = '\0';
    }
};

bool isText(const char* component, std::size_t size, const char* text) {
    return std::strlen(text) == size && std::memcmp(component, text, size) == 0;
}

// Appends one component to `plain`. Returns whether it is a name, so that a path that ends in it need not be
// a folder.
bool take(PlainPath& plain, const char* component, std::size_t size) {
    if (size == 0 || isText(component, size, "."))
        return false;
    if (isText(component, size, "..")) {
        plain.removeLast();
        return false;
    }
    plain.append(component, size);
    return true;
}

// Fills `plain` from an absolute path. Returns whether the path has to be a folder, as "/update/".
bool simplify(const char* path, PlainPath& plain) {
    bool endsInName = true;
    while (*path == '/') {
        ++path;
        const std::size_t size = std::strcspn(path, "/");
        endsInName = take(plain, path, size);
        path += size;
    }
    return !endsInName;
}

PathKind kindOf(const PlainPath& plain) {
    for (const DevicePath& row : DEVICE_PATHS) {
        const std::size_t size = std::strlen(row.path);
        if (std::strncmp(plain.text, row.path, size) != 0)
            continue;
        const char next = plain.text[size];
        if (next == '\0' || (next == '/' && row.kind == PathKind::Folder))
            return row.kind;
    }
    return PathKind::Elsewhere;
}

// Appends to the text in `out`. Returns false if it does not fit.
bool add(char* out, std::size_t size, const char* text) {
    const std::size_t used = std::strlen(out);
    const std::size_t length = std::strlen(text);
    if (length >= size - used)
        return false;
    std::memcpy(out + used, text, length + 1);
    return true;
}

} // namespace

PathKind mappedPath(const char* root, const char* path, char* out, std::size_t size) {
    // The system call refuses a path that is too long.
    if (root == nullptr || path == nullptr || *path != '/' || strnlen(path, PATH_MAX) == PATH_MAX)
        return PathKind::Elsewhere;
    PlainPath plain;
    const bool asksForFolder = simplify(path, plain);
    const PathKind kind = kindOf(plain);
    if (kind == PathKind::Elsewhere)
        return kind;
    *out = '\0';
    const bool fits =
        add(out, size, root) && add(out, size, plain.text) && (!asksForFolder || add(out, size, "/"));
    return fits ? kind : PathKind::TooLong;
}

bool mappedName(const char* prefix, const char* name, char* out, std::size_t size) {
    *out = '\0';
    return add(out, size, "/") && add(out, size, prefix) && add(out, size, name + std::strspn(name, "/"));
}
