#include "apps/web/service/app/multipart.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/app/writeinpieces.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t NOWHERE = std::string_view::npos;

} // namespace

Multipart::Multipart(std::string_view body, std::string_view boundary, const char* filePath)
    : body_(body), delimiter_("\n--"), filePath_(filePath) {
    delimiter_ += boundary;
}

bool Multipart::read(Form& form) {
    if (skipToFirstPart(form))
        while (parts_ <= MAX_PARTS && readHeaders(form))
            readContent(form);
    return isStored_ && (!file_.isOpen() || file_.sync());
}

bool Multipart::isDelimiter(std::string_view line) const {
    return line.starts_with(std::string_view(delimiter_).substr(1));
}

std::string_view Multipart::nextLine() {
    const std::size_t end = std::min(body_.find('\n', position_), body_.size());
    const std::string_view line = body_.substr(position_, end - position_);
    position_ = end + 1;
    return line;
}

// Where the next line stands that is a delimiter.
std::size_t Multipart::findDelimiter() const {
    const std::string_view rest = body_.substr(position_);
    if (isDelimiter(rest))
        return position_;
    const void* found = memmem(rest.data(), rest.size(), delimiter_.data(), delimiter_.size());
    if (found == nullptr)
        return NOWHERE;
    return static_cast<std::size_t>(static_cast<const char*>(found) - body_.data()) + 1;
}

bool Multipart::skipToFirstPart(Form& form) {
    const std::size_t delimiter = findDelimiter();
    if (delimiter == NOWHERE)
        return false;
    position_ = delimiter;
    nextLine();
    startPart(form, {});
    return true;
}

// Reads up to the empty line that ends the headers of a part. Returns false when the form ends before it.
bool Multipart::readHeaders(Form& form) {
    for (std::size_t begin = position_; !isAtEnd() && parts_ <= MAX_PARTS;) {
        const std::string_view line = nextLine();
        if (position_ - begin > MAX_HEADERS)
            return false;
        const std::string_view text = trimHeaderText(line);
        if (isDelimiter(line)) {
            startPart(form, {});
            begin = position_;
        } else if (!text.empty()) {
            splitHeaderLine(text, headers_);
        } else if (!headers_.empty()) {
            logHeaders();
            return true;
        }
    }
    return false;
}

void Multipart::readContent(Form& form) {
    if (isFile())
        openFile();
    if (isAtEnd())
        return;
    const std::size_t delimiter = findDelimiter();
    if (delimiter == NOWHERE) {
        if (isFile())
            storeUnclosed(body_.substr(position_));
        position_ = body_.size() + 1;
        return;
    }
    const std::string_view content = contentUpTo(delimiter);
    if (isFile())
        store(content);
    position_ = delimiter;
    nextLine();
    startPart(form, isFile() ? std::string_view(filePath_) : content);
}

std::string_view Multipart::contentUpTo(std::size_t delimiter) const {
    std::string_view content = body_.substr(position_, delimiter - position_);
    if (content.ends_with("\r\n"))
        content.remove_suffix(2);
    return content;
}

// A delimiter ends the present part, which becomes a field if it has a name.
void Multipart::startPart(Form& form, std::string_view value) {
    const auto name = headers_.find("name");
    if (name != headers_.end())
        form[name->second] = value;
    LOG_MESSAGE(DebugMost, "Start of new block");
    ++parts_;
    headers_.clear();
}

void Multipart::openFile() {
    if (!file_.isOpen())
        isStored_ = file_.open(filePath_) && isStored_;
}

void Multipart::store(std::string_view content) {
    isStored_ = writeInPieces(file_, content) && isStored_;
}

// Stores the content of a part that ends with the body: LF is added to its last line, unless that ends in CR,
// which counts as half of the CR LF in front of a delimiter.
void Multipart::storeUnclosed(std::string_view content) {
    const bool endsInCr = content.ends_with('\r');
    store(content.substr(0, content.size() - (endsInCr ? 1 : 0)));
    if (!endsInCr)
        store("\n");
}

bool Multipart::isFile() const {
    const auto name = headers_.find("name");
    return name != headers_.end() && name->second == "file";
}

void Multipart::logHeaders() const {
    LOG_MESSAGE(DebugMost, "Block data for fields:");
    for (const auto& [key, value] : headers_)
        LOG_MESSAGE(DebugAll, "  %s: %s", key.c_str(), value.c_str());
}
