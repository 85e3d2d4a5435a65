#ifndef QESSERVICEDATALIB_UTIL_ABSTRACTQUERY_H
#define QESSERVICEDATALIB_UTIL_ABSTRACTQUERY_H

namespace Kivo::Util {

/// A search run over a container: a function object that reads `TContainer` and returns what
/// it found. The caller keeps the container unchanged while the query runs.
template <typename TContainer, typename TResult>
class AbstractQuery {
public:
    /// What the query searches (TContainer).
    typedef TContainer container_type;
    /// What the query answers (TResult).
    typedef TResult result_type;

    /// Searches `container`, which it only reads, and returns what it found.
    virtual result_type operator()(const container_type& container) const = 0;
    virtual ~AbstractQuery() = default;
};

}  // namespace Kivo::Util

#endif  // QESSERVICEDATALIB_UTIL_ABSTRACTQUERY_H
