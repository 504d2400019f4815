#pragma once

#include "apps/common/files/outputfile.h"
#include "apps/web/service/app/headerline.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

/// The fields of a form: name to value. For the field "file" the value is the path of the file that holds the
/// content.
using Form = std::map<std::string, std::string>;

/// Reads a body of type multipart/form-data in place: nothing of it is copied but the fields' values.
///
///     --boundary                     a delimiter: any line that begins like this
///     Content-Disposition: ...       header lines
///                                    an empty line
///     content                        every byte up to the CR LF in front of the next delimiter
///     --boundary--                   closes the last part; nothing needs to stand behind it
///
/// Lines end in LF, with or without CR. A part whose last line ends in a bare LF keeps that. A part without a
/// closing delimiter is not a field, but its bytes stay in the file. Text before the first delimiter and
/// parts without a name are dropped. Of two parts with the same name, the later one counts; two parts named
/// "file" share the file, one content after the other.
class Multipart {
public:
    /// The form ends after this many parts, and with a part whose headers are longer than this: bodies of
    /// nothing else would take many times their own size or block the service for seconds.
    static constexpr std::size_t MAX_PARTS = 1000;
    static constexpr std::size_t MAX_HEADERS = 65536;

    /// REQUIRES: a boundary that is not empty. `body` and `filePath` must outlive the object.
    Multipart(std::string_view body, std::string_view boundary, const char* filePath);

    /// Reads the whole body into `form`. The file is created or truncated at the first part named "file".
    /// The file is on the disk when the call returns. Returns false when it could not be opened or not be
    /// written completely. REQUIRES: called once.
    bool read(Form& form);

private:
    bool isAtEnd() const { return position_ > body_.size(); }
    bool isDelimiter(std::string_view line) const;
    std::string_view nextLine();
    std::string_view contentUpTo(std::size_t delimiter) const;
    std::size_t findDelimiter() const;
    bool skipToFirstPart(Form& form);
    bool readHeaders(Form& form);
    void readContent(Form& form);
    void startPart(Form& form, std::string_view value);
    void openFile();
    void store(std::string_view content);
    void storeUnclosed(std::string_view content);
    bool isFile() const;
    void logHeaders() const;

    std::string_view body_;
    std::string delimiter_; ///< with the LF in front that makes it the beginning of a line
    const char* filePath_;
    std::size_t position_ = 0; ///< of the next line; the body's size when the last line is empty
    std::size_t parts_ = 0;
    bool isStored_ = true; ///< all bytes of the file so far
    HeaderFields headers_; ///< of the present part
    OutputFile file_;
};
