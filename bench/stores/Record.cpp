#include <cstdio>

#include "Store.h"

namespace Kivo::Bench {

namespace {

const int WORDS = 110;
const int MID_WORD = 3;

// Distinct words of a capital, a small letter up to 'e' and an 'x', but one: word MID_WORD is
// "Mid", so "Mid%" finds one element in WORDS.
std::string word(int k) {
    if (k == MID_WORD) return "Mid";
    return {static_cast<char>('A' + k % 26), static_cast<char>('a' + k / 26), 'x'};
}

}  // namespace

Record record(int n) {
    char id[40];
    std::snprintf(id, sizeof id, "00000000-0000-4000-8000-%012d", n);
    Record result;
    result.id = id;
    result.name = word(n % WORDS) + " " + std::to_string(n);
    result.uri = "/Bench/Items/" + result.id;
    result.category = "category " + std::to_string(n % 20);
    result.number = n % 1000;
    return result;
}

}  // namespace Kivo::Bench
