#include "RelayClient/HTTPExchange.h"

#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>

#include "RelayClient/RelayError.h"

namespace quorvane {
namespace {

// libcurl's global state is set up once, before the first transfer of any thread.
void initialiseCurl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
// Header lines may carry a credential: each is wiped before the list is freed.
struct HeaderListDeleter {
  void operator()(curl_slist* list) const {
    for (curl_slist* item = list; item != nullptr; item = item->next)
      secureWipe(item->data, std::char_traits<char>::length(item->data));
    curl_slist_free_all(list);
  }
};
using Easy = std::unique_ptr<CURL, EasyDeleter>;
using Multi = std::unique_ptr<CURLM, MultiDeleter>;
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

struct Collected {
  HTTPAnswer answer;
  bool tooLarge = false;
};

size_t collectBody(char* data, size_t size, size_t count, void* context) {
  auto* collected = static_cast<Collected*>(context);
  const size_t length = size * count;
  if (collected->answer.body.size() + length > kRelayAnswerLimit) {
    collected->tooLarge = true;
    return 0;  // makes libcurl stop the transfer
  }
  collected->answer.body.append(std::string_view(data, length));
  return length;
}

// Keeps the Date header of the final answer: a status line starts the headers of a new answer
// (after an interim "100 Continue"), so it forgets what an earlier one said.
size_t collectHeader(char* data, size_t size, size_t count, void* context) {
  auto* collected = static_cast<Collected*>(context);
  const size_t length = size * count;
  std::string_view line(data, length);
  if (line.starts_with("HTTP/")) collected->answer.date.reset();
  constexpr std::string_view kDate = "date:";
  if (line.size() >= kDate.size() &&
      std::equal(kDate.begin(), kDate.end(), line.begin(),
                 [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); })) {
    std::string_view value = line.substr(kDate.size());
    while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
      value.remove_prefix(1);
    while (!value.empty() && (value.back() == '\r' || value.back() == '\n' || value.back() == ' ' ||
                              value.back() == '\t'))
      value.remove_suffix(1);
    collected->answer.date = std::string(value);
  }
  return length;
}

void appendHeader(HeaderList& headers, const char* line) {
  curl_slist* extended = curl_slist_append(headers.get(), line);
  if (extended == nullptr) throw RelayError::transport("out of memory");
  headers.release();
  headers.reset(extended);
}

void setOption(CURLcode code) {
  if (code != CURLE_OK) throw RelayError::transport(curl_easy_strerror(code));
}

}  // namespace

HTTPAnswer performHTTP(const RelayEndpoint& endpoint, const RelayRequest& request,
                       std::stop_token stop) {
  initialiseCurl();
  if (stop.stop_requested()) throw RelayError::transport(kRelayCancelledDescription);
  Easy easy(curl_easy_init());
  Multi multi(curl_multi_init());
  if (!easy || !multi) throw RelayError::transport("the HTTP library could not start");

  CURL* handle = easy.get();
  const std::string url = relayURL(endpoint.baseURL, request.path);
  char errorText[CURL_ERROR_SIZE] = {};
  Collected collected;
  const long timeoutMs = std::lround(std::max(request.timeout, 0.001) * 1000);
  setOption(curl_easy_setopt(handle, CURLOPT_URL, url.c_str()));
  setOption(curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https"));
  setOption(curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L));
  setOption(curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, timeoutMs));
  setOption(curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L));
  setOption(curl_easy_setopt(handle, CURLOPT_USERAGENT, "Quorvane"));
  setOption(curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText));
  setOption(curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, collectBody));
  setOption(curl_easy_setopt(handle, CURLOPT_WRITEDATA, &collected));
  setOption(curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, collectHeader));
  setOption(curl_easy_setopt(handle, CURLOPT_HEADERDATA, &collected));
  if (endpoint.caFile)
    setOption(curl_easy_setopt(handle, CURLOPT_CAINFO, endpoint.caFile->c_str()));

  if (request.method == "GET") {
    setOption(curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L));
  } else if (request.method == "POST") {
    setOption(curl_easy_setopt(handle, CURLOPT_POST, 1L));
  } else {
    setOption(curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str()));
  }
  static const char kEmpty[] = "";
  if (request.body || request.method == "POST") {
    const size_t size = request.body ? request.body->size() : 0;
    const void* data = size > 0 ? static_cast<const void*>(request.body->data()) : kEmpty;
    setOption(curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size)));
    setOption(curl_easy_setopt(handle, CURLOPT_POSTFIELDS, data));
  }

  // libcurl would add a form content type to bodies and wait for "100 Continue" before large
  // ones; an empty value removes a header it would add.
  HeaderList headers;
  appendHeader(headers, "Content-Type:");
  appendHeader(headers, "Expect:");
  if (request.bearer) {
    SecureBytes line;
    line.append("Authorization: Bearer ");
    line.append(request.bearer->text());
    line.push_back('\0');
    appendHeader(headers, reinterpret_cast<const char*>(line.data()));
  }
  setOption(curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get()));

  if (curl_multi_add_handle(multi.get(), handle) != CURLM_OK)
    throw RelayError::transport("the HTTP library could not start");
  // A stop request wakes the poll below at once rather than at its next turn.
  std::stop_callback wake(stop, [&multi] { curl_multi_wakeup(multi.get()); });
  CURLcode result = CURLE_OK;
  bool done = false;
  while (!done) {
    int running = 0;
    CURLMcode code = curl_multi_perform(multi.get(), &running);
    if (code == CURLM_OK && running > 0)
      code = curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
    if (code != CURLM_OK) {
      curl_multi_remove_handle(multi.get(), handle);
      throw RelayError::transport(curl_multi_strerror(code));
    }
    if (stop.stop_requested()) {
      curl_multi_remove_handle(multi.get(), handle);
      throw RelayError::transport(kRelayCancelledDescription);
    }
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi.get(), &queued)) {
      if (message->msg == CURLMSG_DONE && message->easy_handle == handle) {
        result = message->data.result;
        done = true;
      }
    }
    if (!done && running == 0) {
      curl_multi_remove_handle(multi.get(), handle);
      throw RelayError::transport("the transfer ended without a result");
    }
  }
  curl_multi_remove_handle(multi.get(), handle);
  if (collected.tooLarge) throw RelayError::malformed();
  if (result != CURLE_OK)
    throw RelayError::transport(errorText[0] != '\0' ? std::string(errorText)
                                                     : curl_easy_strerror(result));
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  collected.answer.status = static_cast<int>(status);
  return std::move(collected.answer);
}

}  // namespace quorvane
