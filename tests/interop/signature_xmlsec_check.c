/* Verifies one package signature with the XML Security Library (xmlsec1, OpenSSL), an engine written
 * independently of zvaddon: SignedInfo, the signature value with the key given (never KeyInfo's), and
 * every manifest reference through xmlsec's own relationships transform. Given a trust store (a name
 * ending in ".pem"), the key is KeyInfo's certificate, whose chain must reach the store.
 *   signature_xmlsec_check FOLDER SIGNATURE_PART PUBLIC_KEY_DER|TRUST.pem
 * Prints "reference ok|bad URI" per reference and "signature ok|bad"; exits 0 when all verify, 1 when
 * something does not, 2 on a usage or set-up error.
 */
#include <stdio.h>
#include <string.h>

#include <libxml/parser.h>
#include <libxml/valid.h>
#include <xmlsec/crypto.h>
#include <xmlsec/io.h>
#include <xmlsec/xmldsig.h>
#include <xmlsec/xmltree.h>

static const char* folder;

/* Part names ("/a/b.xml?ContentType=...") map to files below FOLDER; nothing else is reachable. */
static int partMatch(const char* uri) { return uri != NULL && uri[0] == '/'; }
static void* partOpen(const char* uri) {
  char path[8192];
  if (snprintf(path, sizeof path, "%s%.*s", folder, (int)strcspn(uri, "?#"), uri) >= (int)sizeof path) return NULL;
  return fopen(path, "rb");
}
static int partRead(void* file, char* buffer, int length) { return (int)fread(buffer, 1, (size_t)length, file); }
static int partClose(void* file) { return fclose(file); }

/* What the xmlsec1 tool does for --id-attr:Id Object: the Object's Id becomes an XML ID. */
static void registerObjectIds(xmlDocPtr doc, xmlNodePtr node) {
  for (; node != NULL; node = node->next) {
    xmlAttrPtr id = node->type == XML_ELEMENT_NODE && xmlSecCheckNodeName(node, xmlSecNodeObject, xmlSecDSigNs)
                        ? xmlHasProp(node, BAD_CAST "Id") : NULL;
    xmlChar* value = id != NULL ? xmlNodeListGetString(doc, id->children, 1) : NULL;
    if (value != NULL && xmlGetID(doc, value) == NULL) xmlAddID(NULL, doc, value, id);
    xmlFree(value);
    registerObjectIds(doc, node->children);
  }
}

static int setupError(const char* what, const char* name) {
  fprintf(stderr, "%s %s\n", what, name);
  return 2;
}

int main(int argc, char** argv) {
  if (argc != 4) return setupError("usage:", "signature_xmlsec_check FOLDER SIGNATURE_PART PUBLIC_KEY_DER|TRUST.pem");
  folder = argv[1];
  char signaturePath[8192];
  snprintf(signaturePath, sizeof signaturePath, "%s%s", folder, argv[2]);
  xmlInitParser();
  if (xmlSecInit() < 0 || xmlSecCryptoAppInit(NULL) < 0 || xmlSecCryptoInit() < 0) return setupError("cannot start", "xmlsec");
  xmlSecIOCleanupCallbacks();
  if (xmlSecIORegisterCallbacks(partMatch, partOpen, partRead, partClose) < 0) return setupError("cannot register", "IO");
  xmlDocPtr doc = xmlReadFile(signaturePath, NULL, XML_PARSE_NONET);
  if (doc == NULL || xmlDocGetRootElement(doc) == NULL) return setupError("cannot parse", signaturePath);
  registerObjectIds(doc, xmlDocGetRootElement(doc));
  xmlNodePtr signature = xmlSecFindNode(xmlDocGetRootElement(doc), xmlSecNodeSignature, xmlSecDSigNs);
  if (signature == NULL) return setupError("no Signature element in", signaturePath);

  const size_t keyLength = strlen(argv[3]);
  const int trustStore = keyLength > 4 && strcmp(argv[3] + keyLength - 4, ".pem") == 0;
  xmlSecKeysMngrPtr manager = xmlSecKeysMngrCreate();
  if (manager == NULL || xmlSecCryptoAppDefaultKeysMngrInit(manager) < 0 ||
      (trustStore && xmlSecCryptoAppKeysMngrCertLoad(manager, argv[3], xmlSecKeyDataFormatPem, xmlSecKeyDataTypeTrusted) < 0)) {
    return setupError("cannot load the trust store", argv[3]);
  }
  xmlSecDSigCtxPtr ctx = xmlSecDSigCtxCreate(manager);
  if (!trustStore) {
    ctx->signKey = xmlSecCryptoAppKeyLoad(argv[3], xmlSecKeyDataFormatDer, NULL, NULL, NULL); /* KeyInfo not consulted */
    if (ctx->signKey == NULL) return setupError("cannot load the key", argv[3]);
  }
  ctx->flags |= XMLSEC_DSIG_FLAGS_STORE_MANIFEST_REFERENCES;
  if (xmlSecDSigCtxVerify(ctx, signature) < 0) {
    printf("signature bad (processing failed)\n");
    return 1;
  }
  const xmlSecSize references = xmlSecPtrListGetSize(&ctx->manifestReferences);
  int failures = references == 0;
  for (xmlSecSize i = 0; i < references; ++i) {
    xmlSecDSigReferenceCtxPtr reference = (xmlSecDSigReferenceCtxPtr)xmlSecPtrListGetItem(&ctx->manifestReferences, i);
    const int ok = reference->status == xmlSecDSigStatusSucceeded;
    failures += !ok;
    printf("reference %s %s\n", ok ? "ok" : "bad", reference->uri != NULL ? (const char*)reference->uri : "");
  }
  const int signatureOk = ctx->status == xmlSecDSigStatusSucceeded;
  printf("%ssignature %s\n", references == 0 ? "no manifest reference was checked\n" : "", signatureOk ? "ok" : "bad");
  return signatureOk && failures == 0 ? 0 : 1;
}
