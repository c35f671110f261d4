#include "helpers/TLSServer.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace tessivane {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

void require(bool done) {
  if (!done)
    throw std::runtime_error("TLSServer: OpenSSL refused something");
}

Certificate selfSigned(EVP_PKEY* key, const TLSValidity& validity) {
  Certificate certificate(X509_new(), &X509_free);
  X509* x509 = certificate.get();
  X509_set_version(x509, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
  X509_gmtime_adj(X509_getm_notBefore(x509), validity.begin.count());
  X509_gmtime_adj(X509_getm_notAfter(x509), validity.end.count());
  X509_set_pubkey(x509, key);
  X509_NAME* name = X509_get_subject_name(x509);
  const std::string text = "loopback test";
  X509_NAME_add_entry_by_txt(name,
                             "CN",
                             MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(text.data()),
                             static_cast<int>(text.size()),
                             -1,
                             0);
  X509_set_issuer_name(x509, name);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> address(
      X509V3_EXT_conf_nid(
          nullptr, nullptr, NID_subject_alt_name, ("IP:" + validity.address).c_str()),
      &X509_EXTENSION_free);
  require(X509_add_ext(x509, address.get(), -1) == 1);
  require(X509_sign(x509, key, EVP_sha256()) > 0);
  return certificate;
}

std::string pem(X509* certificate) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
  require(memory != nullptr && PEM_write_bio_X509(memory.get(), certificate) == 1);
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

}  // namespace

TLSServer::TLSServer(const TLSValidity& validity)
    : context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
  const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  require(context_ != nullptr && key != nullptr);
  const Certificate certificate = selfSigned(key.get(), validity);
  certificate_ = pem(certificate.get());
  require(SSL_CTX_use_certificate(context_.get(), certificate.get()) == 1);
  require(SSL_CTX_use_PrivateKey(context_.get(), key.get()) == 1);
}

TLSServer::Session TLSServer::session(int socket) const {
  Session session(SSL_new(context_.get()), &SSL_free);
  require(session != nullptr && SSL_set_fd(session.get(), socket) == 1);
  return session;
}

bool TLSServer::accept(ssl_st& session) {
  ERR_clear_error();
  return SSL_accept(&session) == 1;
}

}  // namespace tessivane
