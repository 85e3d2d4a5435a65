#ifndef QESSERVICEDATALIB_FUZZ_FUZZSUPPORT_H
#define QESSERVICEDATALIB_FUZZ_FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyIndexQuery.h"

// What the fuzz targets share. A target reports a broken contract with QES_FUZZ_CHECK, which
// aborts so that libFuzzer keeps the input; any exception a target does not catch on purpose
// (because the library documents it for that input) ends the run the same way.
namespace Kivo::Fuzz {

// Sends the library's log, every priority, to a null channel: each logging path runs, and
// nothing is printed. Call once, from LLVMFuzzerInitialize.
void silenceLog();

// The JSON value of `text`, or an empty variant where the parser refuses it: malformed JSON
// is the parser's business, not the library's.
Poco::Dynamic::Var parseJson(const std::string& text);

// The text a JSON member stands for when the library reads it: a string as it is, anything
// else in its JSON text.
std::string memberText(const Poco::Dynamic::Var& member);

[[noreturn]] void fail(const std::string& what);

// An input read front to back: selector bytes, then lines, then the rest.
class InputReader {
public:
    InputReader(const std::uint8_t* data, std::size_t size);

    // The next byte, or 0 at the end.
    unsigned char byte();
    // One of `letters` chosen by the next byte: the byte itself where it is one of them (so
    // seeds and dictionary entries read as letters), one picked by its value otherwise.
    char choice(const char* letters);
    // The text up to the next line break, which is consumed too; the rest where there is none.
    std::string line();
    // Everything not read yet.
    std::string rest();
    bool atEnd() const { return m_position >= m_text.size(); }

private:
    std::string m_text;
    std::size_t m_position = 0;
};

// Hands the index map of a resource to `inspect`, under the resource's index mutex
// (PropertyIndexUser::find); finds nothing itself.
class IndexInspection : public Data::Base::PropertyIndexQuery {
public:
    typedef std::function<void(const Data::Base::PropertyIndexReferenceMap&)> Inspect;

    explicit IndexInspection(Inspect inspect) : m_inspect(std::move(inspect)) {}
    std::vector<Data::Base::Object*> operator()(
        const Data::Base::PropertyIndexReferenceMap& indexes) const override;

private:
    Inspect m_inspect;
};

}  // namespace Kivo::Fuzz

#define QES_FUZZ_CHECK(condition, what)                                            \
    do {                                                                           \
        if (!(condition)) ::Kivo::Fuzz::fail(std::string(what) + ": " #condition); \
    } while (false)

#endif  // QESSERVICEDATALIB_FUZZ_FUZZSUPPORT_H
