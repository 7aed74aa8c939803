/* Verifies one package signature with the XML Security Library (xmlsec1, OpenSSL back end): an
 * XML-DSig engine written independently of zvaddon. It checks SignedInfo, the signature value with
 * the key given (never one from KeyInfo), the package object, and every manifest reference, reading
 * each part from the unzipped package and running xmlsec's own relationships transform. Given a PEM
 * trust store instead of a key (a name ending in ".pem"), it takes the key from KeyInfo's certificate
 * and verifies that certificate's chain to the store.
 *
 *   signature_xmlsec_check FOLDER SIGNATURE_PART PUBLIC_KEY_DER|TRUST.pem
 *
 * FOLDER is the package unzipped; SIGNATURE_PART its part name ("/_xmlsignatures/sig1.xml").
 * Prints "reference ok|bad URI" per manifest reference and "signature ok|bad".
 * Exit status: 0 when all verify, 1 when something does not, 2 on a usage or set-up error.
 */
#include <stdio.h>
#include <string.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/valid.h>
#include <xmlsec/crypto.h>
#include <xmlsec/io.h>
#include <xmlsec/keys.h>
#include <xmlsec/keysmngr.h>
#include <xmlsec/xmldsig.h>
#include <xmlsec/xmlsec.h>
#include <xmlsec/xmltree.h>

static const char* folder;

/* Part names ("/a/b.xml?ContentType=...") map to files below FOLDER; nothing else is reachable. */
static int partMatch(const char* uri) { return uri != NULL && uri[0] == '/'; }

static void* partOpen(const char* uri) {
  char path[8192];
  const size_t length = strcspn(uri, "?#");
  if (snprintf(path, sizeof path, "%s%.*s", folder, (int)length, uri) >= (int)sizeof path) return NULL;
  return fopen(path, "rb");
}

static int partRead(void* context, char* buffer, int length) {
  return (int)fread(buffer, 1, (size_t)length, (FILE*)context);
}

static int partClose(void* context) { return fclose((FILE*)context); }

/* What the xmlsec1 tool does for --id-attr:Id Object: the Object's Id becomes an XML ID. */
static void registerObjectIds(xmlDocPtr doc, xmlNodePtr node) {
  for (xmlNodePtr cur = node; cur != NULL; cur = cur->next) {
    if (cur->type != XML_ELEMENT_NODE) continue;
    if (xmlSecCheckNodeName(cur, xmlSecNodeObject, xmlSecDSigNs)) {
      xmlAttrPtr id = xmlHasProp(cur, BAD_CAST "Id");
      if (id != NULL) {
        xmlChar* value = xmlNodeListGetString(doc, id->children, 1);
        if (value != NULL && xmlGetID(doc, value) == NULL) xmlAddID(NULL, doc, value, id);
        xmlFree(value);
      }
    }
    registerObjectIds(doc, cur->children);
  }
}

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: %s FOLDER SIGNATURE_PART PUBLIC_KEY_DER\n", argv[0]);
    return 2;
  }
  folder = argv[1];
  char signaturePath[8192];
  snprintf(signaturePath, sizeof signaturePath, "%s%s", folder, argv[2]);

  xmlInitParser();
  if (xmlSecInit() < 0 || xmlSecCryptoAppInit(NULL) < 0 || xmlSecCryptoInit() < 0) {
    fprintf(stderr, "xmlsec initialisation failed\n");
    return 2;
  }
  xmlSecIOCleanupCallbacks();
  if (xmlSecIORegisterCallbacks(partMatch, partOpen, partRead, partClose) < 0) {
    fprintf(stderr, "xmlSecIORegisterCallbacks failed\n");
    return 2;
  }

  xmlDocPtr doc = xmlReadFile(signaturePath, NULL, XML_PARSE_NONET);
  if (doc == NULL || xmlDocGetRootElement(doc) == NULL) {
    fprintf(stderr, "cannot parse %s\n", signaturePath);
    return 2;
  }
  registerObjectIds(doc, xmlDocGetRootElement(doc));
  xmlNodePtr signature = xmlSecFindNode(xmlDocGetRootElement(doc), xmlSecNodeSignature, xmlSecDSigNs);
  if (signature == NULL) {
    fprintf(stderr, "no Signature element\n");
    return 2;
  }

  const size_t keyLength = strlen(argv[3]);
  const int trustStore = keyLength > 4 && strcmp(argv[3] + keyLength - 4, ".pem") == 0;
  xmlSecKeysMngrPtr manager = xmlSecKeysMngrCreate();
  if (manager == NULL || xmlSecCryptoAppDefaultKeysMngrInit(manager) < 0 ||
      (trustStore && xmlSecCryptoAppKeysMngrCertLoad(manager, argv[3], xmlSecKeyDataFormatPem, xmlSecKeyDataTypeTrusted) < 0)) {
    fprintf(stderr, "cannot load the trust store %s\n", argv[3]);
    return 2;
  }
  xmlSecDSigCtxPtr ctx = xmlSecDSigCtxCreate(manager);
  if (!trustStore) {
    xmlSecKeyPtr key = xmlSecCryptoAppKeyLoad(argv[3], xmlSecKeyDataFormatDer, NULL, NULL, NULL);
    if (key == NULL) {
      fprintf(stderr, "cannot load the key %s\n", argv[3]);
      return 2;
    }
    ctx->signKey = key; /* set: KeyInfo is not consulted */
  }
  ctx->flags |= XMLSEC_DSIG_FLAGS_STORE_MANIFEST_REFERENCES;
  if (xmlSecDSigCtxVerify(ctx, signature) < 0) {
    printf("signature bad (processing failed)\n");
    return 1;
  }

  int failures = 0;
  const xmlSecSize references = xmlSecPtrListGetSize(&ctx->manifestReferences);
  for (xmlSecSize i = 0; i < references; ++i) {
    xmlSecDSigReferenceCtxPtr reference = (xmlSecDSigReferenceCtxPtr)xmlSecPtrListGetItem(&ctx->manifestReferences, i);
    const int ok = reference->status == xmlSecDSigStatusSucceeded;
    failures += !ok;
    printf("reference %s %s\n", ok ? "ok" : "bad", reference->uri != NULL ? (const char*)reference->uri : "");
    xmlSecBufferPtr digested = xmlSecDSigReferenceCtxGetPreDigestBuffer(reference);
    if (!ok && digested != NULL) {
      printf("  digested: %.*s\n", (int)xmlSecBufferGetSize(digested), (const char*)xmlSecBufferGetData(digested));
    }
  }
  if (references == 0) {
    printf("no manifest reference was checked\n");
    failures++;
  }
  const int signatureOk = ctx->status == xmlSecDSigStatusSucceeded;
  printf("signature %s\n", signatureOk ? "ok" : "bad");

  xmlSecDSigCtxDestroy(ctx);
  xmlSecKeysMngrDestroy(manager);
  xmlFreeDoc(doc);
  xmlSecCryptoShutdown();
  xmlSecCryptoAppShutdown();
  xmlSecShutdown();
  xmlCleanupParser();
  return signatureOk && failures == 0 ? 0 : 1;
}
