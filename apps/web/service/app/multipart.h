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
    /// Limits the fields, so that a body of tiny parts does not take many times its own size.
    static constexpr std::size_t MAX_FIELDS = 1000;

    /// REQUIRES: a boundary that is not empty. `body` and `filePath` must outlive the object.
    Multipart(std::string_view body, std::string_view boundary, const char* filePath);

    /// Reads the whole body into `form`. The file is created or truncated at the first part named "file".
    /// Open and write errors are not reported; the later rename fails. REQUIRES: called once.
    void read(Form& form);

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
    bool isFile() const;
    void logHeaders() const;

    std::string_view body_;
    std::string delimiter_; ///< with the LF in front that makes it the beginning of a line
    const char* filePath_;
    std::size_t position_ = 0; ///< of the next line; the body's size when the last line is empty
    HeaderFields headers_;     ///< of the present part
    OutputFile file_;
};
