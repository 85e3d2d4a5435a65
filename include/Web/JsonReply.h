#ifndef QESSERVICEDATALIB_WEB_JSONREPLY_H
#define QESSERVICEDATALIB_WEB_JSONREPLY_H

#include <string>

#include <Poco/Dynamic/Var.h>

#include "Data/OperationResult.h"
#include "Web/WebExchange.h"

namespace Kivo::Web {

/// How results become HTTP answers: the status that fits each result code, and the JSON
/// bodies of the interface. Every failure, of a read or a write, answers
/// `{"result": <code string>, "message": <reason>}`.
///
/// Statuses: ok and no update 200; invalid_value, wrong_type, unknown_property and
/// invalid_object 400; forbidden 403; not_found and unknown_object 404; duplicate 409;
/// invalid_operation 405; processing_error (and anything unknown) 500. The callers pick 201,
/// 412, 413, 401 and 415 themselves where the route says so.
class JsonReply {
public:
    JsonReply() = delete;
    /// The status for `code`.
    static int statusOf(Data::OperationResult::Value code);
    /// The result body for `result` under statusOf(code); a success carries an empty message.
    static WebResponse of(const Data::OperationResult& result);
    /// The failure body `{"result": <code string>, "message": <message>}` under `status`.
    static WebResponse failure(int status, Data::OperationResult::Value code,
                               const std::string& message);
    /// `json`, compact, under `status`.
    static WebResponse json(int status, const Poco::Dynamic::Var& json);
    /// `json` as compact JSON text.
    static std::string stringify(const Poco::Dynamic::Var& json);
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_JSONREPLY_H
