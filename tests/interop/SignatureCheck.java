// Verifies one package signature with the JDK's own XML-DSig engine, as signature_xmlsec_check.c does
// with a trust store (same arguments, output and exit status): the key of KeyInfo's first
// certificate once its chain reaches the store (PKIX). The JDK has no relationships transform, so
// this file registers one, written from the transform's published definition.
import java.io.*;
import java.nio.charset.StandardCharsets;
import java.nio.file.*;
import java.security.*;
import java.security.cert.*;
import java.security.spec.AlgorithmParameterSpec;
import java.util.*;
import javax.xml.crypto.*;
import javax.xml.crypto.dom.DOMStructure;
import javax.xml.crypto.dsig.*;
import javax.xml.crypto.dsig.dom.DOMValidateContext;
import javax.xml.crypto.dsig.keyinfo.*;
import javax.xml.crypto.dsig.spec.TransformParameterSpec;
import javax.xml.parsers.DocumentBuilderFactory;
import org.w3c.dom.*;

public final class SignatureCheck {
  static final String DSIG = XMLSignature.XMLNS;
  static final String PKG = "http://schemas.openxmlformats.org/package/2006/digital-signature";
  static final String RELS = "http://schemas.openxmlformats.org/package/2006/relationships";

  static Document parse(InputStream in) throws Exception {
    DocumentBuilderFactory factory = DocumentBuilderFactory.newInstance();
    factory.setNamespaceAware(true);
    return factory.newDocumentBuilder().parse(in);
  }

  static String escape(String s) { return s.replace("&", "&amp;").replace("<", "&lt;").replace("\"", "&quot;"); }

  // The relationships transform: the selected relationships, sorted by Id, TargetMode written out.
  public static final class RelationshipTransform extends TransformService {
    private final Set<String> ids = new HashSet<>();
    private final Set<String> types = new HashSet<>();

    public void init(TransformParameterSpec params) {}
    public void init(XMLStructure parent, XMLCryptoContext context) {
      NodeList children = ((Element) ((DOMStructure) parent).getNode()).getChildNodes();
      for (int i = 0; i < children.getLength(); i++) {
        if (!(children.item(i) instanceof Element e) || !PKG.equals(e.getNamespaceURI())) continue;
        if (e.getLocalName().equals("RelationshipReference")) ids.add(e.getAttribute("SourceId"));
        if (e.getLocalName().equals("RelationshipsGroupReference")) types.add(e.getAttribute("SourceType"));
      }
    }
    public void marshalParams(XMLStructure parent, XMLCryptoContext context) {}
    public AlgorithmParameterSpec getParameterSpec() { return null; }
    public boolean isFeatureSupported(String feature) { return false; }
    public Data transform(Data data, XMLCryptoContext context) throws TransformException {
      try {
        NodeList all = parse(((OctetStreamData) data).getOctetStream()).getElementsByTagNameNS(RELS, "Relationship");
        TreeMap<String, String> selected = new TreeMap<>();
        for (int i = 0; i < all.getLength(); i++) {
          Element r = (Element) all.item(i);
          if (!ids.contains(r.getAttribute("Id")) && !types.contains(r.getAttribute("Type"))) continue;
          String mode = r.hasAttribute("TargetMode") ? r.getAttribute("TargetMode") : "Internal";
          selected.put(r.getAttribute("Id"), "<Relationship Id=\"" + escape(r.getAttribute("Id")) + "\" Target=\""
              + escape(r.getAttribute("Target")) + "\" TargetMode=\"" + mode + "\" Type=\""
              + escape(r.getAttribute("Type")) + "\"></Relationship>");
        }
        String xml = "<Relationships xmlns=\"" + RELS + "\">" + String.join("", selected.values()) + "</Relationships>";
        return new OctetStreamData(new ByteArrayInputStream(xml.getBytes(StandardCharsets.UTF_8)));
      } catch (Exception e) {
        throw new TransformException(e);
      }
    }

    public Data transform(Data data, XMLCryptoContext context, OutputStream os) throws TransformException { return transform(data, context); }
  }

  public static void main(String[] args) throws Exception {
    if (args.length != 3) {
      System.err.println("usage: java SignatureCheck.java FOLDER SIGNATURE_PART TRUST.pem");
      System.exit(2);
    }
    final String service = "TransformService.http://schemas.openxmlformats.org/package/2006/RelationshipTransform";
    Security.addProvider(new Provider("ZvTest", "1", "relationships transform") {{
      put(service, RelationshipTransform.class.getName());
      put(service + " MechanismType", "DOM");
    }});
    CertificateFactory x509 = CertificateFactory.getInstance("X.509");
    Set<TrustAnchor> anchors = new HashSet<>();
    try (InputStream in = new FileInputStream(args[2])) {
      for (var c : x509.generateCertificates(in)) anchors.add(new TrustAnchor((X509Certificate) c, null));
    }
    Document doc = parse(new FileInputStream(args[0] + args[1]));
    NodeList objects = doc.getElementsByTagNameNS(DSIG, "Object");
    for (int i = 0; i < objects.getLength(); i++) ((Element) objects.item(i)).setIdAttribute("Id", true);
    // The key is the first certificate's, once its chain holds; a certificate that does not chain
    // gives no key, and the signature fails.
    KeySelector keys = new KeySelector() {
      public KeySelectorResult select(KeyInfo info, Purpose purpose, AlgorithmMethod method, XMLCryptoContext c)
          throws KeySelectorException {
        List<X509Certificate> chain = new ArrayList<>();
        for (Object o : info.getContent()) {
          if (o instanceof X509Data data) for (Object d : data.getContent()) if (d instanceof X509Certificate cert) chain.add(cert);
        }
        if (chain.isEmpty()) throw new KeySelectorException("no certificate in KeyInfo");
        try {
          PKIXParameters params = new PKIXParameters(anchors);
          params.setRevocationEnabled(false);
          CertPathValidator.getInstance("PKIX").validate(x509.generateCertPath(chain), params);
        } catch (GeneralSecurityException e) {
          throw new KeySelectorException("untrusted certificate: " + e.getMessage());
        }
        PublicKey key = chain.get(0).getPublicKey();
        return () -> key;
      }
    };
    Node signature = doc.getElementsByTagNameNS(DSIG, "Signature").item(0);
    DOMValidateContext context = new DOMValidateContext(keys, signature);
    context.setProperty("org.jcp.xml.dsig.secureValidation", Boolean.FALSE);
    URIDereferencer standard = XMLSignatureFactory.getInstance("DOM").getURIDereferencer();
    context.setURIDereferencer((ref, c) -> {
      String uri = ref.getURI();
      if (!uri.startsWith("/")) return standard.dereference(ref, c);
      try {
        return new OctetStreamData(Files.newInputStream(Paths.get(args[0] + uri.replaceFirst("[?#].*", ""))), uri, null);
      } catch (IOException e) {
        throw new URIReferenceException(e);
      }
    });
    XMLSignature xml = XMLSignatureFactory.getInstance("DOM").unmarshalXMLSignature(context);
    boolean ok = false;
    try {
      ok = xml.validate(context);
    } catch (XMLSignatureException e) {
      System.out.println("signature bad (" + e.getMessage() + ")");
      System.exit(1);
    }
    int references = 0;
    for (Object o : xml.getObjects()) {
      for (Object content : ((XMLObject) o).getContent()) {
        if (!(content instanceof Manifest manifest)) continue;
        for (Reference ref : (List<Reference>) manifest.getReferences()) {
          boolean good = ref.validate(context);
          ok &= good;
          references++;
          System.out.println("reference " + (good ? "ok " : "bad ") + ref.getURI());
        }
      }
    }
    ok &= references > 0;
    System.out.println("signature " + (ok ? "ok" : "bad"));
    System.exit(ok ? 0 : 1);
  }
}
