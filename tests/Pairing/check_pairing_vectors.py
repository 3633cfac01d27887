#!/usr/bin/env python3
"""Checks tests/data/pairing-vectors.json with a second implementation of the pairing values,
written from docs/pairing.md alone (Python's hashlib and hmac, and the cryptography package for
AES-GCM and P-256). The X-Wing public keys are taken from the file as given.

Usage: check_pairing_vectors.py VECTOR_FILE. Exit 0 when every output matches, 1 otherwise, 77
(skipped) when the cryptography package is missing."""

import base64
import hashlib
import hmac
import json
import struct
import sys

try:
    from cryptography.hazmat.primitives import serialization
    from cryptography.hazmat.primitives.asymmetric import ec
    from cryptography.hazmat.primitives.ciphers.aead import AESGCM
except ImportError:
    print("skipped: the Python cryptography package is not installed")
    sys.exit(77)


def string(value):
    """An SSH wire string: uint32 length, then the bytes (text as UTF-8)."""
    if isinstance(value, str):
        value = value.encode()
    return struct.pack(">I", len(value)) + value


def uint32(number):
    return struct.pack(">I", number)


def sha256(data):
    return hashlib.sha256(data).digest()


def hmac_sha256(key, data):
    return hmac.new(key, data, hashlib.sha256).digest()


def public_key(scalar_hex):
    key = ec.derive_private_key(int(scalar_hex, 16), ec.SECP256R1())
    return key.public_key().public_bytes(serialization.Encoding.X962,
                                         serialization.PublicFormat.UncompressedPoint)


def outputs(inputs, kem_keys):
    i = inputs
    h = bytes.fromhex
    out = {}
    mac_key, device_key = public_key(i["macSigningScalar"]), public_key(i["deviceSigningScalar"])
    mac_kem, device_kem = h(kem_keys["macKemKey"]), h(kem_keys["deviceKemKey"])
    mac_hash, device_hash = sha256(mac_key), sha256(device_key)
    out.update(macSigningKey=mac_key.hex(), deviceSigningKey=device_key.hex(),
               macKemKey=mac_kem.hex(), deviceKemKey=device_kem.hex(),
               macIdentityHash=mac_hash.hex(), deviceIdentityHash=device_hash.hex())

    payload = (uint32(2) + string(i["relayURL"]) + string(i["offerBoxID"]) +
               string(i["offerBoxSecret"]) + string(h(i["codeKey"])))
    out["codeText"] = "quorvane:pair:" + base64.urlsafe_b64encode(payload).decode().rstrip("=")

    secret = h(i["offerSecret"])
    offer = (uint32(2) + string(i["relayURL"]) + string(i["macMailboxID"]) +
             string(i["macSendToken"]) + string(i["replyBoxID"]) +
             string(i["replyBoxSendToken"]) + string(mac_key) + string(mac_kem) +
             string(i["macName"]) + string(secret) + struct.pack(">Q", i["expiresAt"]))
    aad = b"QAP1 pairing offer " + i["offerBoxID"].encode()
    nonce = h(i["offerNonce"])
    out.update(offerPlaintext=offer.hex(), offerAssociatedData=aad.hex(),
               offerEnvelope=(b"\x06" + nonce +
                              AESGCM(h(i["codeKey"])).encrypt(nonce, offer, aad)).hex())

    mac_nonce, device_nonce = h(i["macNonce"]), h(i["deviceNonce"])
    commitment = sha256(b"QAP1 pairing nonce" + string(secret) + string(device_hash) +
                        string(device_nonce))
    untagged = (uint32(2) + string(device_key) + string(device_kem) + string(i["deviceName"]) +
                bytes([i["deviceKind"]]) + string(i["deviceMailboxID"]) +
                string(i["deviceSendToken"]) + string(commitment))
    tag_input = b"QAP1 pairing reply" + sha256(offer) + untagged
    tag = hmac_sha256(secret, tag_input)
    reply = untagged + string(tag)
    out.update(deviceCommitment=commitment.hex(), replyTagInput=tag_input.hex(),
               replyTag=tag.hex(), replyEnvelope=(b"\x01" + reply).hex())

    transcript = string("QAP1 pairing v2") + string(offer) + string(reply)
    transcript_hash = sha256(transcript)
    out.update(transcript=transcript.hex(), transcriptHash=transcript_hash.hex(),
               pairingID=transcript_hash[:16].hex())

    challenge = uint32(2) + string(transcript_hash) + string(mac_nonce)
    reveal = challenge + string(device_nonce)
    out.update(challengePlaintext=challenge.hex(),
               challengeSignatureInput=(b"QAP1 pairing challenge" + challenge).hex(),
               challengeHPKEInfo=(b"QAP1 pairing challenge" + mac_hash + device_hash).hex(),
               revealPlaintext=reveal.hex(),
               revealSignatureInput=(b"QAP1 pairing reveal" + reveal).hex(),
               revealHPKEInfo=(b"QAP1 pairing reveal" + device_hash + mac_hash).hex())

    sas_input = b"QAP1 sas v2" + transcript_hash + mac_nonce + device_nonce
    sas_tag = hmac_sha256(secret, sas_input)
    digits = "%06u" % (struct.unpack(">I", sas_tag[:4])[0] % 1000000)
    out.update(sasInput=sas_input.hex(), sasTag=sas_tag.hex(), sas=digits[:3] + " " + digits[3:])
    return out


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        vectors = json.load(file)
    published = vectors["outputs"]
    computed = outputs(vectors["inputs"], published)
    wrong = sorted(name for name in set(published) | set(computed)
                   if published.get(name) != computed.get(name))
    if wrong:
        print("outputs that differ:", ", ".join(wrong))
        return 1
    print(f"all {len(computed)} outputs match")
    return 0


if __name__ == "__main__":
    sys.exit(main())
